#include "gateway/policy/suggest.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>

namespace gateway::policy {
namespace {

constexpr std::size_t kLongestWord = 40;

/// Words that other mail systems use for what is meant.
constexpr std::pair<std::string_view, std::string_view> kSynonyms[] = {
    {"from", "sender"},
    {"mail_from", "sender"},
    {"envelope_sender", "sender"},
    {"to", "recipient"},
    {"rcpt", "recipient"},
    {"any_recipient", "recipient"},
    {"envelope_recipient", "recipient"},
    {"filename", "attachment_name"},
    {"file_name", "attachment_name"},
    {"attachment", "attachment_name"},
    {"mime_type", "attachment_type"},
    {"content_type", "attachment_type"},
    {"and", "all"},
    {"or", "any"},
    {"none", "not"},
    {"regex", "matches"},
    {"match", "matches"},
    {"larger", "over"},
    {"above", "over"},
    {"smaller", "under"},
    {"below", "under"},
    {"if", "when"},
    {"condition", "when"},
    {"conditions", "when"},
    {"action", "actions"},
    {"then", "actions"},
    {"discard", "delete"},
    {"drop", "delete"},
    {"remove", "delete"},
    {"hold", "postpone"},
    {"defer", "postpone"},
    {"add_header", "x_header"},
    {"header", "x_header"},
    {"redirect", "readdress"},
    {"forward", "readdress"},
    {"relay", "handoff"},
    {"copy", "bcc"},
    {"journal", "archive"},
    {"refuse", "reject"},
    {"deny", "reject"},
    {"bounce", "reject"},
    {"defer", "tempfail"},
    {"retry", "tempfail"},
    {"fail", "tempfail"},
    {"pass", "accept"},
    {"continue", "accept"},
    {"ignore", "accept"},
    {"answer", "verdict"},
};

std::string folded(std::string_view word) {
  std::string out;
  for (char c : word) {
    out +=
        c == '-' || c == ' ' ? '_' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return out;
}

/// Edit distance with neighbours swapped counting once; both words are short.
std::size_t distance(std::string_view left, std::string_view right) {
  std::vector<std::size_t> before(right.size() + 1), last(right.size() + 1), row(right.size() + 1);
  std::iota(last.begin(), last.end(), std::size_t{0});
  for (std::size_t i = 1; i <= left.size(); ++i) {
    row[0] = i;
    for (std::size_t j = 1; j <= right.size(); ++j) {
      const std::size_t change = left[i - 1] == right[j - 1] ? 0 : 1;
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + change});
      if (i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1]) {
        row[j] = std::min(row[j], before[j - 2] + 1);
      }
    }
    std::swap(before, last);
    std::swap(last, row);
  }
  return last[right.size()];
}

std::string_view synonymOf(std::string_view word, const std::vector<std::string_view>& known) {
  const std::string typed = folded(word.substr(0, kLongestWord + 1));
  for (const auto& [foreign, ours] : kSynonyms) {
    if (typed == foreign && std::find(known.begin(), known.end(), ours) != known.end()) return ours;
  }
  return {};
}

}  // namespace

std::string_view closestTo(std::string_view word, const std::vector<std::string_view>& known) {
  if (word.empty() || word.size() > kLongestWord) return {};
  const std::string typed = folded(word);
  std::string_view best;
  std::size_t bestDistance = 1 + std::max<std::size_t>(1, typed.size() / 3);
  for (std::string_view candidate : known) {
    const std::size_t candidateDistance = distance(typed, candidate);
    if (candidateDistance < bestDistance) {
      best = candidate;
      bestDistance = candidateDistance;
    }
  }
  return best;
}

std::string remedyFor(std::string_view word, const std::vector<std::string_view>& known) {
  std::string_view meant = closestTo(word, known);
  if (meant.empty()) meant = synonymOf(word, known);
  if (!meant.empty()) return "(did you mean '" + std::string(meant) + "'?)";
  std::string text = "(known: ";
  for (std::size_t i = 0; i < known.size(); ++i) {
    if (i != 0) text += ", ";
    text += known[i];
  }
  return text + ")";
}

std::string inQuotes(std::string_view word) {
  std::string text = "'";
  std::size_t end = std::min(word.size(), kLongestWord);
  // Never cut a UTF-8 character in two.
  while (end < word.size() && end > 0 && (static_cast<unsigned char>(word[end]) & 0xC0) == 0x80) {
    --end;
  }
  for (char c : word.substr(0, end)) {
    text += static_cast<unsigned char>(c) < 0x20 || c == 0x7F ? '?' : c;
  }
  return text + (end < word.size() ? "…'" : "'");
}

}  // namespace gateway::policy
