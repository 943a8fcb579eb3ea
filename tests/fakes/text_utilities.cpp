// The platform's operations on texts, able to fail on demand.
#include <iconv.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "library/platform/msgu.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/text_utils.h"
#include "tests/fakes/fault_plan.h"

void tokenize(const std::string& text, std::vector<std::string>& parts, char separator) {
  fakes::platformCallFails();  // has no failure result: may only throw
  std::string part;
  for (const char character : text + separator) {
    if (character != separator) {
      part += character;
    } else if (!part.empty()) {
      parts.push_back(part);
      part.clear();
    }
  }
}

void ReformatSpecialToken(Kavi::TokenMap<Kavi::ScanToken>& tokens, Kavi::ScanToken token) {
  fakes::platformCallFails();  // has no failure result: may only throw
  std::string* list = tokens.find(token);
  if (list == nullptr) {
    return;
  }
  std::string line;
  for (const char character : *list) {
    if (character == '\n') {
      line += ", ";
    } else {
      line += character;
    }
  }
  *list = line;
}

namespace msgu {

bool conv(const char* text, const char* fromCharset, const char* toCharset, std::string& out,
          int& error, bool /*lossy*/) {
  out.clear();
  error = OVMSGERR::Ok;
  if (fakes::platformCallFails()) {
    error = OVMSGERR::MalformedText;
    return false;
  }
  std::vector<char> bytes(4 * std::strlen(text) + 1);
  const iconv_t converter = iconv_open(toCharset, fromCharset);
  if (converter == reinterpret_cast<iconv_t>(-1)) {
    error = OVMSGERR::UnknownCharset;
    return false;
  }
  char* source = const_cast<char*>(text);
  std::size_t sourceLeft = std::strlen(text);
  char* target = bytes.data();
  std::size_t room = bytes.size();
  const bool converted = iconv(converter, &source, &sourceLeft, &target, &room) == 0;
  iconv_close(converter);
  if (!converted) {
    error = OVMSGERR::MalformedText;
    return false;
  }
  out.assign(bytes.data(), target);
  return true;
}

}  // namespace msgu

namespace OVMSGERR {

const char* I2A(int code) {
  fakes::platformCallFails();  // has no failure result: may only throw
  return code == MalformedText ? "malformed text" : "other error";
}

}  // namespace OVMSGERR
