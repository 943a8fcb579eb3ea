#include "host/core/text_escape.h"

namespace host::core {

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

bool isContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

void appendHex(std::string& out, unsigned char byte) {
  out += "\\x";
  out += kHexDigits[byte >> 4];
  out += kHexDigits[byte & 15];
}

void appendControl(std::string& out, unsigned char byte) {
  switch (byte) {
    case '\n':
      out += "\\n";
      break;
    case '\r':
      out += "\\r";
      break;
    case '\t':
      out += "\\t";
      break;
    default:
      appendHex(out, byte);
  }
}

}  // namespace

std::size_t utf8Length(std::string_view text) {
  if (text.empty()) return 0;
  const auto byteAt = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  const unsigned char lead = byteAt(0);
  if (lead < 0x80) return 1;
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return 0;
  for (std::size_t at = 1; at < length; ++at) {
    if (!isContinuation(byteAt(at))) return 0;
  }
  const unsigned char second = byteAt(1);
  const bool outside = (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
                       (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F);
  return outside ? 0 : length;
}

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = utf8Length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

void appendPrintable(std::string& out, std::string_view text) {
  while (!text.empty()) {
    const auto lead = static_cast<unsigned char>(text[0]);
    const std::size_t length = utf8Length(text);
    const bool c1 = lead == 0xC2 && length == 2 && static_cast<unsigned char>(text[1]) < 0xA0;
    if (lead < 0x20 || lead == 0x7F) {
      appendControl(out, lead);
      text.remove_prefix(1);
    } else if (length == 0 || c1) {
      appendHex(out, lead);
      if (c1) appendHex(out, static_cast<unsigned char>(text[1]));
      text.remove_prefix(c1 ? 2 : 1);
    } else {
      out.append(text.substr(0, length));
      text.remove_prefix(length);
    }
  }
}

std::string printable(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  appendPrintable(out, text);
  return out;
}

}  // namespace host::core
