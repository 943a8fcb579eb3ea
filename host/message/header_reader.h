// Finds header fields in bytes.
#pragma once

#include <cstddef>
#include <string_view>

namespace host::message {

/// One header line with the folded lines behind it (RFC 5322 section 2.2.3).
struct RawField {
  std::string_view bytes;       ///< with the final line break, if there is one
  std::size_t nameLength = 0;   ///< 0 for a line that is no field
  std::size_t valueOffset = 0;  ///< behind the colon
};

/// The field that begins at \p begin, which lies before \p end and is no blank line. Only LF ends a
/// line; white space between name and colon is accepted (RFC 5322 section 4.5).
RawField readField(const char* begin, const char* end);

/// The length of the blank line at \p begin, its line break included; 0 when there is none. Any
/// number of CRs before the LF makes a blank line still: what programs that double them write.
std::size_t blankLineLength(const char* begin, const char* end);

/// The length of the mbox "From " line at \p begin; 0 when there is none.
std::size_t mboxLineLength(const char* begin, const char* end);

}  // namespace host::message
