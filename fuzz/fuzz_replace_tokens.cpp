// Token replacement beside its literal steps. Input: a value (one byte of length, then its bytes),
// which stands for some tokens, then the text.
#include <cstdint>
#include <string>

#include "fuzz/check.h"
#include "library/platform/ov_msg_functions.h"
#include "library/tokens/action_utils.h"
#include "tests/unit/library/tokens/literal_replacement.h"

namespace {

using fuzz::require;

using Kavi::ScanToken;
using Tokens = Kavi::TokenMap<ScanToken>;

bool same(const Tokens& left, const Tokens& right) {
  auto other = right.begin();
  for (const auto& [token, value] : left) {
    if (other == right.end() || other->first != token || other->second != value) {
      return false;
    }
    ++other;
  }
  return other == right.end();
}

const OvMsgMailMessage& emptyMessage() {
  ActionUtils::_build_token_string_table();
  return *OvMsg_CreateMailMessage();  // for the life of the process
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const OvMsgMailMessage& msg = emptyMessage();
  if (size == 0 || size - 1 < data[0]) {
    return 0;
  }
  const std::size_t valueSize = data[0];
  const std::string value(reinterpret_cast<const char*>(data) + 1, valueSize);
  const std::string text(reinterpret_cast<const char*>(data) + 1 + valueSize, size - 1 - valueSize);

  Tokens tokens;
  tokens.set(ScanToken::DateTime, "now");  // the clock moves between the two
  tokens.set(ScanToken::Sender, value);
  tokens.set(ScanToken::FileName, value + "\n" + value);
  Tokens literalTokens = tokens;

  std::string result;
  require(ActionUtils::replaceTokens(tokens, text, msg, result));
  require(result == literalReplacement(literalTokens, text, msg));
  require(same(tokens, literalTokens));
  return 0;
}
