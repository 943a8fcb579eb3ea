// Words of a template that look like mistyped tokens.
#pragma once

#include <string>
#include <vector>

namespace gateway::policy {

/// A word between two "%" that is no token but comes close to one.
struct DoubtfulToken {
  std::string word;   ///< with both "%"
  std::string meant;  ///< the token
};

/// Reads \p text as token replacement does. Each word is named once, in order. Linear in the text.
std::vector<DoubtfulToken> doubtfulTokens(const std::string& text);

/// The first of them as a doubt about what \p text stands in; empty when there is none.
std::string doubtAboutTokens(const std::string& text);

/// The first token in \p text, as it stands; empty when there is none.
std::string firstToken(const std::string& text);

}  // namespace gateway::policy
