#include "gateway/policy/patterns.h"

#include <re2/re2.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "gateway/policy/suggest.h"

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

/// What administrators are told of a fault that RE2 finds.
struct RegexRemedy {
  const char* what;
  const char* remedy;
  re2::RE2::ErrorCode code;
  bool showsWhat;  ///< the part that is wrong is worth showing
};

constexpr RegexRemedy kRegexRemedies[] = {
    {"a \"(\" that is never closed", "close it, or write \\( for the character itself",
     re2::RE2::ErrorMissingParen, false},
    {"a \")\" that closes nothing", "write \\) for the character itself",
     re2::RE2::ErrorUnexpectedParen, false},
    {"a \"[\" that is never closed", "close it with ], or write \\[ for the character itself",
     re2::RE2::ErrorMissingBracket, false},
    {"no set of characters",
     "a range goes from the lower to the higher one, as in a-z; write \\- for a hyphen itself",
     re2::RE2::ErrorBadCharRange, true},
    {"no set of characters", "write the characters between [ and ]", re2::RE2::ErrorBadCharClass,
     true},
    {"an escape that means nothing", "write \\\\ for a backslash itself", re2::RE2::ErrorBadEscape,
     true},
    {"a backslash with nothing behind it", "write \\\\ for a backslash itself",
     re2::RE2::ErrorTrailingBackslash, false},
    {"nothing to repeat",
     "it is looked for anywhere in the text: leave the stars at its ends out; write .* for any "
     "characters, \\* \\+ or \\? for the character itself",
     re2::RE2::ErrorRepeatArgument, true},
    {"a repetition of a repetition",
     "one of * + ? is enough; put a \\ in front of one that is meant as a character",
     re2::RE2::ErrorRepeatOp, true},
    {"a repetition that is too large or the wrong way round",
     "1000 is the most, repetitions within repetitions multiplied; the smaller number comes first",
     re2::RE2::ErrorRepeatSize, true},
    {"a group that is not known",
     "there is no looking ahead or behind; write (?: for a group, (?i) or (?-i) for the case",
     re2::RE2::ErrorBadPerlOp, true},
    {"a group without a proper name", "write (?P<name>...), each name once, or (...)",
     re2::RE2::ErrorBadNamedCapture, true},
    {"bytes that are no UTF-8", "save the policy as UTF-8", re2::RE2::ErrorBadUTF8, false},
    {"it is too large", "make it shorter, its repetitions smaller, or several patterns of it",
     re2::RE2::ErrorPatternTooLarge, false},
};

/// The place of the bracket of \p pattern that has no partner; npos when there is none.
std::size_t lonelyBracket(std::string_view pattern) {
  std::vector<std::size_t> open;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    const char c = pattern[i];
    if (c == '\\') {
      ++i;
    } else if (c == '[') {
      const std::size_t end = setEnd(pattern, i);
      if (end == std::string_view::npos) return i;
      i = end;
    } else if (c == '(') {
      open.push_back(i);
    } else if (c == ')') {
      if (open.empty()) return i;
      open.pop_back();
    }
  }
  return open.empty() ? std::string_view::npos : open.back();
}

/// Where in \p pattern the fault is; npos when nobody knows.
std::size_t faultPlace(const std::string& pattern, const re2::RE2& compiled) {
  switch (compiled.error_code()) {
    case re2::RE2::ErrorMissingParen:
    case re2::RE2::ErrorUnexpectedParen:
    case re2::RE2::ErrorMissingBracket:
      return lonelyBracket(pattern);
    case re2::RE2::ErrorTrailingBackslash:
      return pattern.size() - 1;
    default:
      return compiled.error_arg().empty() ? std::string::npos : pattern.find(compiled.error_arg());
  }
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
  if (compiled.ok()) return {};
  const RegexRemedy* known = std::find_if(
      std::begin(kRegexRemedies), std::end(kRegexRemedies),
      [&compiled](const RegexRemedy& row) { return row.code == compiled.error_code(); });
  if (known == std::end(kRegexRemedies)) return compiled.error();
  std::string fault = known->what;
  const std::size_t place = faultPlace(pattern, compiled);
  if (place != std::string::npos) {
    const std::string_view front = std::string_view(pattern).substr(0, place);
    const auto characters =
        std::count_if(front.begin(), front.end(), [](char c) { return (c & 0xC0) != 0x80; });
    fault += " at character " + std::to_string(characters + 1);
    if (known->showsWhat) fault += ", " + inQuotes(compiled.error_arg());
  }
  return fault + " (" + known->remedy + ")";
}

}  // namespace gateway::policy
