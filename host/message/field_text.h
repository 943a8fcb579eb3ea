// The bytes of a header field that is being written.
#pragma once

#include <string>
#include <string_view>

#include "host/message/ascii.h"

namespace host::message {

/// What a field is to say.
struct FieldText {
  std::string_view name;
  std::string_view value;
  /// Of the value; null writes its bytes as they stand, but for UTF-8 (or ASCII) with a word that
  /// no line can hold.
  const char* charset;
};

/// Writes a whole field. \param terminated  false leaves the final line break out.
/// \return 0 or an OVMSGERR code.
int composeField(const FieldText& wanted, LineBreak lineBreak, bool terminated, std::string& text);

/// \p value with line breaks that cannot end a field: one with white space and then text behind it
/// stays a fold, any other becomes a space, or nothing at the end.
std::string withSafeBreaks(std::string_view value, LineBreak lineBreak);

}  // namespace host::message
