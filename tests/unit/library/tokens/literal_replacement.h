// What token replacement has to give: its steps, written down one by one.
#pragma once

#include <string>

#include "library/tokens/action_utils.h"

/// The replacement as it is laid down, step by step; the library's own must give the same.
inline std::string literalReplacement(Kavi::TokenMap<Kavi::ScanToken>& tokens,
                                      const std::string& wholeText, const OvMsgMailMessage& msg) {
  const std::string text = wholeText.c_str();
  std::string result;
  std::size_t done = 0;
  std::size_t p = 0;
  for (;;) {
    while (p < text.size() && text[p] != '%') {
      ++p;
    }
    if (p >= text.size()) {
      break;
    }
    std::size_t q = p + 1;
    if (q < text.size() && text[q] != '%') {
      while (q < text.size() && text[q] != '%') {
        ++q;
      }
    }
    if (q >= text.size()) {
      break;
    }
    if (q == p + 1) {
      p = q + 1;
      continue;
    }
    const std::string candidate = text.substr(p, q - p + 1);
    const char* value = ActionUtils::getTokenValue(tokens, candidate.c_str(), msg);
    if (value == nullptr) {
      p = q;
      continue;
    }
    result += text.substr(done, p - done);
    result += value;
    done = q + 1;
    p = q + 1;
  }
  return result + text.substr(done);
}
