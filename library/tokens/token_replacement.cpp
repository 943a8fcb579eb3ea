#include "library/tokens/token_replacement.h"

#include <cstddef>
#include <cstring>
#include <functional>
#include <map>
#include <utility>

#include "library/platform/text_utils.h"
#include "library/tokens/action_utils.h"
#include "library/tokens/token_table.h"

namespace {

using Kavi::ScanToken;

constexpr std::size_t kResultReserve = 1024;
constexpr std::size_t kValueReserve = 128;

// Looked up by parts of a text, so that no candidate has to be copied.
std::map<std::string, ScanToken, std::less<>> textToToken;
std::map<ScanToken, TokenValueFunction> tokenToFunction;

bool hasListForm(ScanToken token) {
  return token == ScanToken::FileName || token == ScanToken::VirusName ||
         token == ScanToken::VirusFileName;
}

// A stored date is stale under the Japanese format: that is the time of this replacement.
bool isAlwaysComputed(std::string_view text) {
  return text == "%DATE&TIME%" && ActionUtils::usesJapaneseTime();
}

// What the token's function makes of the message; empty when it has none.
std::string computeValue(TokenValueFunction function, Kavi::TokenMap<ScanToken>& tokens,
                         std::string_view text, const OvMsgMailMessage& msg) {
  std::string value;
  if (function != nullptr) {
    value.reserve(kValueReserve);
    function(tokens, msg, value);
  } else {
    const std::string_view name = text.substr(1, text.size() - 2);
    ActionUtils::L3("The value of token '%.*s' is empty (unfilled).", static_cast<int>(name.size()),
                    name.data());
  }
  return value;
}

}  // namespace

namespace token_replacement {

void buildMaps() {
  textToToken.clear();
  tokenToFunction.clear();
  std::string names;
  for (const TokenRow* row = tokenTable(); row->text[0] != '\0'; ++row) {
    textToToken[row->text] = row->token;
    tokenToFunction[row->token] = row->function;
    if (!names.empty()) names += ',';
    names += row->text;
  }
  ActionUtils::L3("Supporting tokens: %s", names.c_str());
}

const char* valueOf(Kavi::TokenMap<ScanToken>& tokens, std::string_view text,
                    const OvMsgMailMessage& msg) {
  const auto known = textToToken.find(text);
  if (known == textToToken.end()) return nullptr;
  const ScanToken token = known->second;

  if (hasListForm(token)) ReformatSpecialToken(tokens, token);
  const std::string* stored = tokens.find(token);
  if (stored != nullptr && !stored->empty() && !isAlwaysComputed(text)) return stored->c_str();

  const auto function = tokenToFunction.find(token);
  if (function == tokenToFunction.end()) return "";
  std::string value = computeValue(function->second, tokens, text, msg);
  if (!value.empty()) tokens.set(token, std::move(value));
  stored = tokens.find(token);
  return stored != nullptr ? stored->c_str() : "";
}

void replace(Kavi::TokenMap<ScanToken>& tokens, const std::string& text,
             const OvMsgMailMessage& msg, std::string& result) {
  result.reserve(kResultReserve);
  result.clear();
  const char* const end = text.c_str() + std::strlen(text.c_str());
  const auto nextPercent = [end](const char* from) {
    return static_cast<const char*>(std::memchr(from, '%', static_cast<std::size_t>(end - from)));
  };

  const char* done = text.c_str();
  const char* open = nextPercent(done);
  while (open != nullptr) {
    const char* const close = nextPercent(open + 1);
    if (close == nullptr) break;
    if (close == open + 1) {  // "%%" is no token, and its second half opens none
      open = nextPercent(close + 1);
      continue;
    }
    const std::string_view candidate(open, static_cast<std::size_t>(close + 1 - open));
    const char* value =
        candidate.size() < kTokenTextSize ? valueOf(tokens, candidate, msg) : nullptr;
    if (value == nullptr) {  // the closing "%" may open the next one
      open = close;
      continue;
    }
    result.append(done, open);
    result.append(value);
    done = close + 1;
    open = nextPercent(done);
  }
  result.append(done, end);
}

}  // namespace token_replacement
