#include "host/message/header_reader.h"

#include <cstring>

#include "host/message/ascii.h"

namespace host::message {

namespace {

const char* behindLine(const char* begin, const char* end) {
  const void* lf = std::memchr(begin, '\n', static_cast<std::size_t>(end - begin));
  return lf == nullptr ? end : static_cast<const char*>(lf) + 1;
}

}  // namespace

RawField readField(const char* begin, const char* end) {
  RawField field;
  const char* p = begin;
  while (p < end && isFieldNameChar(*p)) ++p;
  const char* nameEnd = p;
  while (p < end && isBlank(*p)) ++p;
  if (nameEnd > begin && p < end && *p == ':') {
    field.nameLength = static_cast<std::size_t>(nameEnd - begin);
    field.valueOffset = static_cast<std::size_t>(p + 1 - begin);
  }
  const char* lineEnd = behindLine(begin, end);
  while (lineEnd < end && lineEnd[-1] == '\n' && isBlank(*lineEnd)) {
    lineEnd = behindLine(lineEnd, end);
  }
  field.bytes = std::string_view(begin, static_cast<std::size_t>(lineEnd - begin));
  return field;
}

std::size_t blankLineLength(const char* begin, const char* end) {
  const char* p = begin;
  while (p < end && *p == '\r') ++p;
  return p < end && *p == '\n' ? static_cast<std::size_t>(p + 1 - begin) : 0;
}

std::size_t mboxLineLength(const char* begin, const char* end) {
  constexpr std::string_view kPrefix = "From ";
  if (static_cast<std::size_t>(end - begin) < kPrefix.size() ||
      std::memcmp(begin, kPrefix.data(), kPrefix.size()) != 0) {
    return 0;
  }
  return static_cast<std::size_t>(behindLine(begin, end) - begin);
}

}  // namespace host::message
