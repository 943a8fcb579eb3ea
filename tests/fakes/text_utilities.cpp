// The platform's operations on texts, able to fail on demand.
#include <strings.h>

#include <string>
#include <vector>

#include "library/platform/msgu.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/text_utils.h"
#include "tests/fakes/conversion.h"
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

int platform_icasencmp(const char* left, const char* right, std::size_t length) {
  fakes::platformCallFails();  // has no failure result: may only throw
  return strncasecmp(left, right, length);
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
  error = fakes::platformCallFails() ? static_cast<int>(OVMSGERR::MalformedText)
                                     : fakes::convert(text, fromCharset, toCharset, out);
  if (error == OVMSGERR::Ok && fakes::Conversions::instance().refuses(fromCharset, toCharset)) {
    error = OVMSGERR::UnencodableText;
    out.clear();
  }
  return error == OVMSGERR::Ok;
}

char* conv(const char* text, const char* fromCharset, const char* toCharset, char* out,
           unsigned int size, int& error, bool lossy) {
  std::string converted;
  *out = '\0';
  if (!conv(text, fromCharset, toCharset, converted, error, lossy)) {
    return nullptr;
  }
  if (converted.size() >= size) {
    error = OVMSGERR::BufferTooSmall;
    return nullptr;
  }
  converted.copy(out, size);
  out[converted.size()] = '\0';
  return out;
}

}  // namespace msgu

namespace OVMSGERR {

const char* I2A(int code) {
  fakes::platformCallFails();  // has no failure result: may only throw
  return code == MalformedText ? "malformed text" : "other error";
}

}  // namespace OVMSGERR
