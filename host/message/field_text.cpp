#include "host/message/field_text.h"

#include "host/message/charset.h"
#include "host/message/encoded_text.h"
#include "host/message/encoded_word.h"
#include "host/message/mime_values.h"
#include "library/platform/ov_msg_error.h"

namespace host::message {

std::string withSafeBreaks(std::string_view value, LineBreak lineBreak) {
  const auto isBreak = [](char c) { return c == '\r' || c == '\n'; };
  while (!value.empty() && isBreak(value.back())) value.remove_suffix(1);
  std::string result;
  result.reserve(value.size());
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (!isBreak(value[i])) {
      result += value[i];
      continue;
    }
    std::size_t next = i + 1;
    if (value[i] == '\r' && next < value.size() && value[next] == '\n') ++next;
    std::size_t text = next;
    while (text < value.size() && isBlank(value[text])) ++text;
    // A fold whose line is blank but for white space would pass for the end of the header.
    const bool isFold = text > next && text < value.size() && !isBreak(value[text]);
    if (isFold) {
      result += lineBreak.text();
    } else {
      result += ' ';
    }
    i = next - 1;
  }
  return result;
}

int composeField(const FieldText& wanted, LineBreak lineBreak, bool terminated, std::string& text) {
  if (!isFieldName(wanted.name)) return OVMSGERR::InvalidArgument;
  const std::string safe = withSafeBreaks(wanted.value, lineBreak);
  std::string value;
  // Bytes as they stand may need a line that is longer than lines may be.
  const bool isTooLong = wanted.charset == nullptr && hasWordBeyondLine(safe) && isUtf8(safe);
  if (wanted.charset == nullptr && !isTooLong) {
    value = foldedValue(wanted.name, trimmed(safe), lineBreak.text());
  } else {
    std::string plain = mime::unfolded(safe);
    if (isTooLong && !holdsAddresses(wanted.name)) plain = decodedText(plain);
    const int code = encodeFieldValue(wanted.name, plain, isTooLong ? "utf-8" : wanted.charset,
                                      lineBreak.text(), value);
    if (code != OVMSGERR::Ok) return code;
  }
  text.assign(wanted.name).append(value.empty() ? ":" : ": ").append(value);
  if (terminated) text += lineBreak.text();
  return OVMSGERR::Ok;
}

}  // namespace host::message
