// Compiled patterns: regular expressions (RE2 syntax) and globs.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace re2 {
class RE2;
}

namespace gateway::policy {

/// A list of patterns; a text matches when one of them does. Letters match without regard to case
/// ("(?-i)" in a regular expression turns that off). Immutable, so it serves any number of threads;
/// matching takes time linear in the text.
class Patterns {
 public:
  Patterns(Patterns&&) noexcept;
  Patterns& operator=(Patterns&&) noexcept;
  ~Patterns();

  /// Regular expressions, found anywhere in a text.
  static Patterns regex(const std::vector<std::string>& patterns);
  /// Globs over the whole text: "*" any characters, "?" one, "[a-z]" one of a set ("[!…]" none).
  static Patterns glob(const std::vector<std::string>& patterns);

  bool matches(std::string_view text) const;

  /// What is wrong with one regular expression, where in it, and what to write instead; empty when
  /// nothing is.
  static std::string regexFault(const std::string& pattern);

 private:
  Patterns();
  std::vector<std::unique_ptr<re2::RE2>> compiled_;
};

}  // namespace gateway::policy
