#include <cstdlib>
#include <cstring>

#include "host/message/charset.h"
#include "host/message/encoded_word.h"
#include "host/message/guard.h"
#include "library/platform/msgu.h"

namespace msgu {

using host::message::guardedCode;

bool conv(const char* text, const char* fromCharset, const char* toCharset, std::string& out,
          int& error, bool lossy) {
  using host::message::OnMisfit;
  error = guardedCode([&]() -> int {
    out.clear();
    if (text == nullptr || fromCharset == nullptr || toCharset == nullptr) {
      return OVMSGERR::InvalidArgument;
    }
    const OnMisfit misfit = lossy ? OnMisfit::QuestionMark : OnMisfit::Fail;
    return host::message::convertCharset(text, fromCharset, toCharset, misfit, misfit, out);
  });
  return error == OVMSGERR::Ok;
}

char* conv(const char* text, const char* fromCharset, const char* toCharset, char* out,
           unsigned int size, int& error, bool lossy) {
  error = OVMSGERR::InvalidArgument;
  if (out == nullptr || size == 0) return nullptr;
  *out = '\0';
  std::string converted;
  if (!conv(text, fromCharset, toCharset, converted, error, lossy)) return nullptr;
  if (converted.size() >= size) {
    error = OVMSGERR::BufferTooSmall;
    return nullptr;
  }
  std::memcpy(out, converted.data(), converted.size());
  out[converted.size()] = '\0';
  return out;
}

char* genRfc2047(const char* text, const char* charset, int& error) {
  char* result = nullptr;
  error = guardedCode([&]() -> int {
    if (text == nullptr || charset == nullptr) return OVMSGERR::InvalidArgument;
    using host::message::OnMisfit;
    std::string converted;
    const bool fits = host::message::convertCharset(text, "utf-8", charset, OnMisfit::Fail,
                                                    OnMisfit::Fail, converted) == OVMSGERR::Ok;
    std::string words;
    const int code = fits ? host::message::encodeWords(converted, charset, words)
                          : host::message::encodeWords(text, "utf-8", words);
    if (code != OVMSGERR::Ok) return code;
    result = static_cast<char*>(std::malloc(words.size() + 1));
    if (result == nullptr) return OVMSGERR::OutOfMemory;
    std::memcpy(result, words.c_str(), words.size() + 1);
    return OVMSGERR::Ok;
  });
  return result;
}

}  // namespace msgu
