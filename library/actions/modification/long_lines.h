// Dividing the lines of a text that are too long for a mail.
#pragma once

#include <string>

namespace library {

/// Divides each line of \p text, UTF-8, that is longer than \p limit bytes when it is written in
/// \p charset, so that its pieces fit, each ending in CR LF. A line counts with its line break; the
/// last one, without any, may be as long as one with. Takes time linear in the text. What it
/// divides is logged at level 1.
///
/// The room for every conversion is that of the text in the charset, with one break per \p limit
/// bytes; text that needs more somewhere on its way, back to UTF-8 included, is not divided.
/// \param limit  1 to 998; below that nothing is done.
/// \return whether a line was divided; otherwise \p text is as it was.
bool divideLongLines(std::string& text, const char* charset, int limit);

}  // namespace library
