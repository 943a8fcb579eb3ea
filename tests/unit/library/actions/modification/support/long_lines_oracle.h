// The division of long lines as it is laid down, step by step, at whatever cost: the measure for
// the library's own.
#pragma once

#include <string>
#include <vector>

namespace oracle {

/// \param log  receives the lines of level 1, in order.
/// \return as `library::divideLongLines`.
bool modifyIfHasLimitLine(std::string& text, const char* charset, int limit,
                          std::vector<std::string>& log);

}  // namespace oracle
