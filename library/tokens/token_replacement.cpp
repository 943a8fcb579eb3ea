#include "library/tokens/token_replacement.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <map>
#include <unordered_map>
#include <utility>

#include "library/framework/guard.h"
#include "library/platform/text_utils.h"
#include "library/tokens/action_utils.h"
#include "library/tokens/token_table.h"
#include "library/tokens/value_functions.h"

namespace library {

namespace {

using Kavi::ScanToken;

constexpr std::size_t kResultReserve = 1024;
constexpr std::size_t kValueReserve = 128;

// Finds a part of a text without a copy of it.
struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const {
    return std::hash<std::string_view>()(text);
  }
};
using TextToToken = std::unordered_map<std::string, ScanToken, TextHash, std::equal_to<>>;
using TokenToFunction = std::map<ScanToken, TokenValueFunction>;

TextToToken textToToken;
TokenToFunction tokenToFunction;

// Values that the scanner keeps as lists.
bool isList(ScanToken token) {
  return token == ScanToken::FileName || token == ScanToken::VirusName ||
         token == ScanToken::VirusFileName;
}

// Under the Japanese format the date is that of this very replacement, whatever is stored.
bool isAlwaysComputed(std::string_view text) {
  return text == "%DATE&TIME%" && usesKaviLocaleForTime();
}

std::string computeValue(TokenValueFunction function, Kavi::TokenMap<ScanToken>& tokens,
                         std::string_view text, const OvMsgMailMessage& msg) {
  std::string value;
  if (function != nullptr) {
    value.reserve(kValueReserve);
    function(tokens, msg, value);
  } else {
    const std::string name(text.substr(1, text.size() - 2));
    ActionUtils::L3("The value of token '%s' is empty (unfilled).", name.c_str());
  }
  return value;
}

}  // namespace

void buildTokenMaps() {
  TextToToken tokens;
  TokenToFunction functions;
  std::string names;
  for (const TokenRow* row = tokenTable(); row->text[0] != '\0'; ++row) {
    tokens[row->text] = row->token;
    functions[row->token] = row->function;
    if (!names.empty()) {
      names += ',';
    }
    names += row->text;
  }
  textToToken.swap(tokens);
  tokenToFunction.swap(functions);
  ActionUtils::L3("Supporting tokens: %s", names.c_str());
}

const char* tokenValue(Kavi::TokenMap<ScanToken>& tokens, std::string_view text,
                       const OvMsgMailMessage& msg) {
  const auto known = textToToken.find(text);
  if (known == textToToken.end()) {
    return nullptr;
  }
  const ScanToken token = known->second;
  if (isList(token)) {
    ReformatSpecialToken(tokens, token);
  }
  const std::string* stored = tokens.find(token);
  if (stored != nullptr && !stored->empty() && !isAlwaysComputed(text)) {
    return stored->c_str();
  }

  const auto function = tokenToFunction.find(token);
  if (function == tokenToFunction.end()) {
    return "";
  }
  std::string value = computeValue(function->second, tokens, text, msg);
  if (!value.empty()) {
    tokens.set(token, std::move(value));
  }
  stored = tokens.find(token);
  return stored != nullptr ? stored->c_str() : "";
}

void replaceTokens(Kavi::TokenMap<ScanToken>& tokens, const std::string& text,
                   const OvMsgMailMessage& msg, std::string& result) {
  const char* done = text.c_str();
  const char* const end = done + std::strlen(done);
  result.clear();
  result.reserve(std::max(kResultReserve, static_cast<std::size_t>(end - done)));
  const auto percentFrom = [end](const char* from) {
    return static_cast<const char*>(std::memchr(from, '%', static_cast<std::size_t>(end - from)));
  };

  const char* open = percentFrom(done);
  while (open != nullptr) {
    const char* const close = percentFrom(open + 1);
    if (close == nullptr) {
      break;
    }
    const std::string_view candidate(open, static_cast<std::size_t>(close + 1 - open));
    if (candidate == "%%") {  // no token; neither of the two opens one
      open = percentFrom(close + 1);
      continue;
    }
    const char* const value =
        candidate.size() < kTokenTextSize ? tokenValue(tokens, candidate, msg) : nullptr;
    if (value == nullptr) {  // no token; the closing "%" may open one
      open = close;
      continue;
    }
    result.append(done, open);
    result.append(value);
    done = close + 1;
    open = percentFrom(done);
  }
  result.append(done, end);
}

}  // namespace library

void ActionUtils::_build_token_string_table() {
  library::guarded("ActionUtils::_build_token_string_table", false, [] {
    library::buildTokenMaps();
    return true;
  });
}

const library::TokenRow* ActionUtils::getTokenNames() { return library::tokenTable(); }

const char* ActionUtils::getTokenValue(Kavi::TokenMap<Kavi::ScanToken>& tokens,
                                       const char* tokenText, const OvMsgMailMessage& msg) {
  const char* const none = nullptr;
  return library::guarded("ActionUtils::getTokenValue", none, [&] {
    return tokenText != nullptr ? library::tokenValue(tokens, tokenText, msg) : none;
  });
}

bool ActionUtils::replaceTokens(Kavi::TokenMap<Kavi::ScanToken>& tokens, const std::string& text,
                                const OvMsgMailMessage& msg, std::string& result) {
  const bool replaced = library::guarded("ActionUtils::replaceTokens", false, [&] {
    library::replaceTokens(tokens, text, msg, result);
    return true;
  });
  if (!replaced) {
    result.clear();
  }
  return replaced;
}
