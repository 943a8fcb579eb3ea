// Which fields of two headers belong together.
#pragma once

#include <vector>

#include "gateway/milter/header_edits.h"

namespace gateway::milter {

/// What becomes of the next field of one header, or where the next of the other one comes from.
enum class AlignmentStep : char { Keep, Change, Delete, Insert };

/// The steps that lead through both headers, with the fewest that are not Keep. Change stands only
/// for fields of one name, and never makes a value empty: the protocol takes that for a deletion.
std::vector<AlignmentStep> alignHeaders(const std::vector<HeaderLine>& before,
                                        const std::vector<HeaderLine>& after);

}  // namespace gateway::milter
