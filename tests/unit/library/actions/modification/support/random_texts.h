// Texts to be written in a charset, at random.
#pragma once

#include <unicode/umachine.h>

#include <random>
#include <string>
#include <vector>

/// Makes texts of what gives converters work: characters that the charset has, those beyond the
/// first plane above all, sequences with a code of their own, characters that it does not have,
/// that are ignored, or that shift its state.
class RandomTexts {
 public:
  /// \param charset  a name that ICU knows
  RandomTexts(const char* charset, unsigned int seed);

  /// A text of about \p units UTF-16 units, UTF-8.
  std::string make(unsigned int units);
  unsigned int below(unsigned int bound) { return static_cast<unsigned int>(random_() % bound); }

 private:
  /// What a run of characters is taken from.
  enum class Source : unsigned int {
    Ascii,
    Kana,
    Ideographs,
    Latin,
    Cyrillic,
    Emoji,
    RareIdeographs,
    Troublesome,
    Own,
    OwnPairs,
    Any,
    Count,
  };
  UChar32 take(Source source);

  std::mt19937 random_;
  std::vector<UChar32> own_;       // characters that the charset has
  std::vector<UChar32> ownPairs_;  // those of them that take two units
};
