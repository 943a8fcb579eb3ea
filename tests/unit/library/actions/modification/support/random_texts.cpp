#include "tests/unit/library/actions/modification/support/random_texts.h"

#include <unicode/ucnv.h>
#include <unicode/uniset.h>
#include <unicode/unistr.h>

#include <iterator>

namespace {

constexpr UChar32 kTroublesome[] = {
    0xca,   0x304, 0x30c,  0x2e9,  0x2e5, 0x304b, 0x309a, 0xff8a, 0xff9f, 0x200b, 0xad,
    0xfeff, 0xe0,  0x300,  0xfffd, 0x1a,  '~',    '+',    '&',    '\\',   0x0e,   0x0f,
    0x1b,   0xa5,  0x203e, 0x2028, '\r',  '\n',   0x0085, 0x3000, 0x180e, 0xfe0f, 0xe0001};

}  // namespace

RandomTexts::RandomTexts(const char* charset, unsigned int seed) : random_(seed) {
  UErrorCode error = U_ZERO_ERROR;
  UConverter* const converter = ucnv_open(charset, &error);
  icu::UnicodeSet set;
  ucnv_getUnicodeSet(converter, set.toUSet(), UCNV_ROUNDTRIP_SET, &error);
  ucnv_close(converter);
  const UChar32 step = set.size() > 100000 ? 97 : 1;
  for (std::int32_t range = 0; range < set.getRangeCount(); ++range) {
    for (UChar32 point = set.getRangeStart(range); point <= set.getRangeEnd(range); point += step) {
      if (!U_IS_SURROGATE(point)) {
        own_.push_back(point);
      }
      if (U16_LENGTH(point) == 2) {
        ownPairs_.push_back(point);
      }
    }
  }
}

UChar32 RandomTexts::take(Source source) {
  const auto between = [this](UChar32 first, unsigned int count) {
    return first + static_cast<UChar32>(below(count));
  };
  const auto oneOf = [this](const std::vector<UChar32>& points) {
    return points.empty() ? UChar32{' '} : points[below(static_cast<unsigned int>(points.size()))];
  };
  switch (source) {
    case Source::Ascii:
      return between(32, 95);
    case Source::Kana:
      return between(0x3041, 83);
    case Source::Ideographs:
      return between(0x4e00, 0x5000);
    case Source::Latin:
      return between(0xa0, 0x260);
    case Source::Cyrillic:
      return between(0x400, 0x400);
    case Source::Emoji:
      return between(0x1f300, 0x300);
    case Source::RareIdeographs:
      return between(0x20000, 0xa6d0);
    case Source::Troublesome:
      return kTroublesome[below(static_cast<unsigned int>(std::size(kTroublesome)))];
    case Source::Own:
      return oneOf(own_);
    case Source::OwnPairs:
      return oneOf(ownPairs_);
    case Source::Any:
    case Source::Count:
      break;
  }
  const UChar32 point = between(1, 0x10fffe);
  return U_IS_SURROGATE(point) ? 'x' : point;
}

std::string RandomTexts::make(unsigned int units) {
  constexpr auto kSources = static_cast<unsigned int>(Source::Count);
  // One text in two is of one kind throughout, but for a character here and there.
  const bool isMixed = below(2) == 0;
  auto source = static_cast<Source>(below(kSources));
  icu::UnicodeString text;
  while (text.length() < static_cast<std::int32_t>(units)) {
    if (isMixed && below(4) == 0) {
      source = static_cast<Source>(below(kSources));
    }
    text.append(take(below(30) == 0 ? static_cast<Source>(below(kSources)) : source));
    if (below(40) == 0) {
      text.append(icu::UnicodeString("\r\n").tempSubString(0, 1 + static_cast<int>(below(2))));
    }
  }
  // How a converter substitutes may depend on the last character that it could not encode.
  if (below(4) == 0) {
    text.append(take(Source::Latin)).append(UChar32{0xad});
  }
  std::string utf8;
  text.toUTF8String(utf8);
  return utf8;
}
