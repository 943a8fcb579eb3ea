#include "gateway/policy/patterns.h"

#include <re2/re2.h>

#include <algorithm>
#include <cstdint>

namespace gateway::policy {
namespace {

/// What one pattern's automaton may take; RE2 falls back to slower, still linear, matching.
constexpr std::int64_t kMaxPatternBytes = std::int64_t{8} << 20;
/// Globs are joined into alternations of this many, so that a long list costs few passes.
constexpr std::size_t kGlobsPerPattern = 64;

re2::RE2::Options options() {
  re2::RE2::Options options;
  options.set_case_sensitive(false);
  options.set_log_errors(false);
  options.set_max_mem(kMaxPatternBytes);
  return options;
}

/// The end of the set that opens at \p start ("["), or npos when it never closes.
std::size_t setEnd(std::string_view glob, std::size_t start) {
  std::size_t first = start + 1;
  if (first < glob.size() && (glob[first] == '!' || glob[first] == '^')) ++first;
  // A "]" in the first place stands for itself.
  return glob.find(']', first + 1);
}

std::string setToRegex(std::string_view set) {
  std::string out = "[";
  std::size_t i = 0;
  if (set[0] == '!' || set[0] == '^') {
    out += '^';
    ++i;
  }
  for (; i < set.size(); ++i) {
    if (set[i] == '\\' || set[i] == '[' || set[i] == ']' || set[i] == '^') out += '\\';
    out += set[i];
  }
  return out + "]";
}

std::string globToRegex(std::string_view glob) {
  std::string out;
  for (std::size_t i = 0; i < glob.size(); ++i) {
    const char c = glob[i];
    if (c == '*') {
      if (out.size() < 2 || out.compare(out.size() - 2, 2, ".*") != 0) out += ".*";
    } else if (c == '?') {
      out += '.';
    } else if (const std::size_t end = c == '[' ? setEnd(glob, i) : std::string_view::npos;
               end != std::string_view::npos) {
      const std::string set = setToRegex(glob.substr(i + 1, end - i - 1));
      // A range the wrong way round is no set; then the bracket stands for itself.
      if (re2::RE2(set, options()).ok()) {
        out += set;
        i = end;
      } else {
        out += "\\[";
      }
    } else {
      out += re2::RE2::QuoteMeta(re2::StringPiece(&c, 1));
    }
  }
  return out;
}

}  // namespace

Patterns::Patterns() = default;
Patterns::Patterns(Patterns&&) noexcept = default;
Patterns& Patterns::operator=(Patterns&&) noexcept = default;
Patterns::~Patterns() = default;

Patterns Patterns::regex(const std::vector<std::string>& patterns) {
  Patterns made;
  for (const std::string& pattern : patterns) {
    made.compiled_.push_back(std::make_unique<re2::RE2>(pattern, options()));
  }
  return made;
}

Patterns Patterns::glob(const std::vector<std::string>& patterns) {
  Patterns made;
  for (std::size_t i = 0; i < patterns.size(); i += kGlobsPerPattern) {
    std::string joined;
    for (std::size_t j = i; j < std::min(patterns.size(), i + kGlobsPerPattern); ++j) {
      if (!joined.empty()) joined += '|';
      joined += "(?:" + globToRegex(patterns[j]) + ")";
    }
    made.compiled_.push_back(std::make_unique<re2::RE2>("(?s)\\A(?:" + joined + ")\\z", options()));
  }
  return made;
}

bool Patterns::matches(std::string_view text) const {
  const re2::StringPiece piece(text.data(), text.size());
  return std::any_of(compiled_.begin(), compiled_.end(), [&piece](const auto& pattern) {
    return pattern->ok() && re2::RE2::PartialMatch(piece, *pattern);
  });
}

std::string Patterns::regexFault(const std::string& pattern) {
  const re2::RE2 compiled(pattern, options());
  return compiled.ok() ? std::string() : compiled.error();
}

}  // namespace gateway::policy
