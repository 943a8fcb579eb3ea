// What commands tell people on standard error.
#pragma once

#include <string>

#include "gateway/policy/diagnostics.h"

namespace gateway::cli {

// Safe from any thread, all of them.

/// Writes one line "kavi: …" to standard error: something failed.
void complain(const std::string& text);

/// Writes all of \p diagnostics to standard error; its errors are complaints.
void complain(const policy::Diagnostics& diagnostics);

/// The same for a line that is complete by itself: it names its file or place.
void complainOfPlace(const std::string& line);

/// Writes one line "kavi: …" to standard error that people may want to know; nothing failed.
void remark(const std::string& text);

/// From now on complaints are kept as well as written, for a report to programs. The first hundred
/// are: a command that runs over a million messages may have one of each.
void keepComplaints();

/// The complaints kept so far, a line each, without line break at the end; empty for none.
std::string keptComplaints();

}  // namespace gateway::cli
