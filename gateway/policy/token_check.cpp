#include "gateway/policy/token_check.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <unordered_set>

#include "gateway/policy/suggest.h"
#include "library/tokens/action_utils.h"
#include "library/tokens/token_table.h"

namespace gateway::policy {
namespace {

constexpr std::size_t kLongestToken = 40;

std::string lowered(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

/// The names of all tokens, in lower case, without "%".
const std::vector<std::string>& tokenNames() {
  static const std::vector<std::string> kNames = [] {
    std::vector<std::string> names;
    for (const library::TokenRow* row = ActionUtils::getTokenNames(); row->text[0] != '\0'; ++row) {
      const std::string_view text = row->text;
      names.push_back(lowered(text.substr(1, text.size() - 2)));
    }
    return names;
  }();
  return kNames;
}

/// Whether \p word could be a name; what has blanks in it is prose between two percentages.
bool isWord(std::string_view word) {
  if (word.size() < 2 || word.size() > kLongestToken) return false;
  return std::all_of(word.begin(), word.end(), [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '_' || c == '&' || c == '-';
  });
}

std::string upper(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return out;
}

/// The token that \p word is, or comes close to, without "%"; empty for none.
std::string tokenMeantBy(std::string_view word) {
  if (!isWord(word)) return {};
  const std::vector<std::string_view> names(tokenNames().begin(), tokenNames().end());
  const std::string typed = lowered(word);
  const auto exact = std::find(names.begin(), names.end(), typed);
  return upper(exact != names.end() ? *exact : closestTo(typed, names));
}

/// Calls \p take(word, token that it is or comes close to, whether it is it) for every word that
/// comes close to one, all with both "%".
template <class Take>
void forEachWord(const std::string& text, Take take) {
  std::size_t open = text.find('%');
  while (open != std::string::npos) {
    const std::size_t close = text.find('%', open + 1);
    if (close == std::string::npos) break;
    const std::string word = text.substr(open, std::min(close + 1 - open, kLongestToken + 3));
    const std::string meant =
        tokenMeantBy(std::string_view(text).substr(open + 1, close - open - 1));
    const bool isToken = word == "%" + meant + "%";
    if (!meant.empty()) take(word, "%" + meant + "%", isToken);
    // The closing sign of what is no token may open the next one.
    open = isToken || close == open + 1 ? text.find('%', close + 1) : close;
  }
}

}  // namespace

std::vector<DoubtfulToken> doubtfulTokens(const std::string& text) {
  std::vector<DoubtfulToken> doubtful;
  std::unordered_set<std::string> seen;
  forEachWord(text, [&](const std::string& word, const std::string& meant, bool isToken) {
    if (!isToken && seen.insert(word).second) doubtful.push_back({word, meant});
  });
  return doubtful;
}

std::string firstToken(const std::string& text) {
  std::string first;
  forEachWord(text, [&](const std::string& word, const std::string&, bool isToken) {
    if (isToken && first.empty()) first = word;
  });
  return first;
}

std::string doubtAboutTokens(const std::string& text) {
  const std::vector<DoubtfulToken> doubtful = doubtfulTokens(text);
  if (doubtful.empty()) return {};
  std::string doubt = "holds " + inQuotes(doubtful.front().word) +
                      ", which is no token and stays as it is (did you mean " +
                      doubtful.front().meant + "?)";
  for (std::size_t i = 1; i < doubtful.size(); ++i) {
    doubt += "; nor is " + inQuotes(doubtful[i].word) + " (" + doubtful[i].meant + "?)";
  }
  return doubt;
}

}  // namespace gateway::policy
