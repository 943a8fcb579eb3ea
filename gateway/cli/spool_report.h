// What `kavi spool` says about messages in the spool.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/delivery/spool_control.h"

namespace gateway::cli {

/// "due", "waiting", "sending", "failed", "damaged" or "unreadable". \param now  seconds since
/// 1970, as in all of these
const char* spoolStateWord(const host::delivery::SpoolItem& item, std::int64_t now);

/// One message for people: several lines, the last with its line break.
std::string spoolText(const host::delivery::SpoolItem& item, std::int64_t now);

/// All of them, and how many there are of each state.
std::string spoolListText(const std::vector<host::delivery::SpoolItem>& items, std::int64_t now);
/// For programs: an array, with its line break (docs/sending.md).
std::string spoolListJson(const std::vector<host::delivery::SpoolItem>& items, std::int64_t now);

/// One message with everything that was tried.
std::string spoolShowText(const host::delivery::SpoolItem& item,
                          const std::vector<host::delivery::SpoolEvent>& events, std::int64_t now);
std::string spoolShowJson(const host::delivery::SpoolItem& item,
                          const std::vector<host::delivery::SpoolEvent>& events, std::int64_t now);

}  // namespace gateway::cli
