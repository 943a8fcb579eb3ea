#include "host/message/charset.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <limits>

#include "host/message/ascii.h"
#include "library/platform/ov_msg_error.h"

namespace host::message {

namespace {

struct CloseConverter {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, CloseConverter>;

constexpr char16_t kQuestionMark[] = u"?";

// Two escape sequences with nothing between them are irregular to ICU, and what joining encoded
// words gives; no text is lost by passing over the first.
void failUndefined(const void*, UConverterToUnicodeArgs*, const char*, int32_t,
                   UConverterCallbackReason reason, UErrorCode* status) {
  if (reason == UCNV_IRREGULAR) *status = U_ZERO_ERROR;
}

void replaceUndefined(const void*, UConverterToUnicodeArgs* args, const char*, int32_t,
                      UConverterCallbackReason reason, UErrorCode* status) {
  if (reason == UCNV_IRREGULAR) *status = U_ZERO_ERROR;
  if (reason >= UCNV_IRREGULAR) return;
  *status = U_ZERO_ERROR;
  ucnv_cbToUWriteUChars(args, kQuestionMark, 1, 0, status);
}

void replaceUnencodable(const void*, UConverterFromUnicodeArgs* args, const UChar*, int32_t,
                        UChar32, UConverterCallbackReason reason, UErrorCode* status) {
  if (reason > UCNV_IRREGULAR) return;
  *status = U_ZERO_ERROR;
  const UChar* text = kQuestionMark;
  ucnv_cbFromUWriteUChars(args, &text, kQuestionMark + 1, 0, status);
}

// ICU's own "stop" callback drops characters without a visible form, such as a joiner, silently.
void failUnencodable(const void*, UConverterFromUnicodeArgs*, const UChar*, int32_t, UChar32,
                     UConverterCallbackReason, UErrorCode*) {}

Converter openConverter(std::string_view name) {
  name = trimmed(name);
  if (name.empty() || name.size() > 60) return nullptr;
  const auto isNameChar = [](char c) { return c > ' ' && c < 127 && c != ',' && c != '='; };
  if (!std::all_of(name.begin(), name.end(), isNameChar)) return nullptr;
  std::string text = lowered(name);
  // Written without a byte order mark; ICU would add one.
  if (text == "iso-10646-ucs-2" || text == "ucs-2" || text == "csunicode") text = "utf-16be";
  UErrorCode status = U_ZERO_ERROR;
  Converter converter(ucnv_open(text.c_str(), &status));
  if (U_FAILURE(status)) return nullptr;
  return converter;
}

int toUnicode(UConverter* converter, std::string_view text, OnMisfit undefined,
              std::u16string& out) {
  UErrorCode status = U_ZERO_ERROR;
  ucnv_setToUCallBack(converter, undefined == OnMisfit::Fail ? failUndefined : replaceUndefined,
                      nullptr, nullptr, nullptr, &status);
  const char* source = text.data();
  const char* const sourceEnd = source + text.size();
  std::size_t filled = 0;
  out.resize(text.size() + 16);
  while (true) {
    UChar* target = out.data() + filled;
    status = U_ZERO_ERROR;
    ucnv_toUnicode(converter, &target, out.data() + out.size(), &source, sourceEnd, nullptr, true,
                   &status);
    filled = static_cast<std::size_t>(target - out.data());
    if (status != U_BUFFER_OVERFLOW_ERROR) break;
    out.resize(out.size() * 2);
  }
  out.resize(filled);
  return U_FAILURE(status) ? OVMSGERR::MalformedText : OVMSGERR::Ok;
}

int fromUnicode(UConverter* converter, std::u16string_view text, std::string& out) {
  const UChar* source = text.data();
  const UChar* const sourceEnd = source + text.size();
  std::size_t filled = 0;
  UErrorCode status = U_ZERO_ERROR;
  out.resize(text.size() * 2 + 16);
  while (true) {
    char* target = out.data() + filled;
    status = U_ZERO_ERROR;
    ucnv_fromUnicode(converter, &target, out.data() + out.size(), &source, sourceEnd, nullptr, true,
                     &status);
    filled = static_cast<std::size_t>(target - out.data());
    if (status != U_BUFFER_OVERFLOW_ERROR) break;
    out.resize(out.size() * 2);
  }
  out.resize(filled);
  return U_FAILURE(status) ? OVMSGERR::UnencodableText : OVMSGERR::Ok;
}

void setMisfit(UConverter* converter, OnMisfit unencodable) {
  UErrorCode status = U_ZERO_ERROR;
  ucnv_setFromUCallBack(converter,
                        unencodable == OnMisfit::Fail ? failUnencodable : replaceUnencodable,
                        nullptr, nullptr, nullptr, &status);
}

/// \p charset, or that of the byte order of \p text where it leaves it open: UTF-16 without a mark
/// is big-endian (RFC 2781 section 4.3), but not for all who write it.
std::string_view withByteOrder(std::string_view charset, std::string_view text) {
  if (!equalsIgnoreCase(charset, "utf-16") || text.starts_with("\xFF\xFE") ||
      text.starts_with("\xFE\xFF")) {
    return charset;
  }
  // Of an ASCII character the high byte is zero.
  std::array<std::size_t, 2> zeros{};
  for (std::size_t i = 0; i < text.size(); ++i) zeros[i % 2] += text[i] == '\0' ? 1 : 0;
  return zeros[1] > zeros[0] ? "utf-16le" : charset;
}

bool isUtf8Name(std::string_view name) {
  return equalsIgnoreCase(name, "utf-8") || equalsIgnoreCase(name, "utf8");
}

/// Every printable character of ASCII.
std::string asciiCharacters() {
  std::string text;
  for (char c = ' '; c < 127; ++c) text += c;
  return text;
}

}  // namespace

int convertCharset(std::string_view text, std::string_view from, std::string_view to,
                   OnMisfit undefined, OnMisfit unencodable, std::string& out) {
  out.clear();
  if (isUtf8Name(from) && isUtf8Name(to) && isUtf8(text)) {
    out = text;
    return OVMSGERR::Ok;
  }
  const Converter source = openConverter(withByteOrder(from, text));
  const Converter target = openConverter(to);
  if (source == nullptr || target == nullptr) return OVMSGERR::UnknownCharset;
  std::u16string unicode;
  if (const int code = toUnicode(source.get(), text, undefined, unicode); code != OVMSGERR::Ok) {
    return code;
  }
  setMisfit(target.get(), unencodable);
  const int code = fromUnicode(target.get(), unicode, out);
  if (code != OVMSGERR::Ok) out.clear();
  return code;
}

bool isKnownCharset(std::string_view name) { return openConverter(name) != nullptr; }

bool isUtf8(std::string_view text) {
  const auto length = static_cast<int64_t>(text.size());
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  int64_t i = 0;
  while (i < length) {
    if (bytes[i] < 0x80) {
      ++i;
      continue;
    }
    // The macro counts in 32 bits: it looks at one character at a time.
    const auto rest = static_cast<int32_t>(std::min<int64_t>(length - i, 4));
    int32_t at = 0;
    UChar32 character = 0;
    U8_NEXT(bytes + i, at, rest, character);
    if (character < 0) return false;
    i += at;
  }
  return true;
}

bool isSevenBitNonAscii(std::string_view name) {
  return startsWithIgnoreCase(name, "iso-2022-") || startsWithIgnoreCase(name, "utf-7") ||
         startsWithIgnoreCase(name, "hz-gb") || startsWithIgnoreCase(name, "csiso2022");
}

bool isAsciiSuperset(std::string_view name) {
  if (isUtf8Name(name) || equalsIgnoreCase(name, "us-ascii") ||
      startsWithIgnoreCase(name, "iso-8859-") || startsWithIgnoreCase(name, "windows-125")) {
    return isUtf8Name(name) || isKnownCharset(name);
  }
  const Converter converter = openConverter(name);
  if (converter == nullptr) return false;
  switch (ucnv_getType(converter.get())) {
    case UCNV_US_ASCII:
    case UCNV_LATIN_1:
    case UCNV_UTF8:
    case UCNV_SBCS:
    case UCNV_MBCS:
    case UCNV_DBCS:
      break;
    default:
      return false;
  }
  // The second byte of a Johab character may be any of ASCII's.
  UErrorCode status = U_ZERO_ERROR;
  const char* const canonical = ucnv_getName(converter.get(), &status);
  if (U_FAILURE(status) || std::string_view(canonical).starts_with("ibm-1363") ||
      equalsIgnoreCase(name, "johab")) {
    return false;
  }
  const std::string ascii = asciiCharacters();
  std::u16string read;
  return toUnicode(converter.get(), ascii, OnMisfit::Fail, read) == OVMSGERR::Ok &&
         read == std::u16string(ascii.begin(), ascii.end());
}

bool isForHeaders(std::string_view name) {
  std::string letter;
  return convertCharset("a", "utf-8", name, OnMisfit::Fail, OnMisfit::Fail, letter) ==
             OVMSGERR::Ok &&
         letter == "a";
}

int decodeText(std::string_view text, std::string_view charset, DecodedText& out) {
  out = {};
  const Converter converter = openConverter(withByteOrder(charset, text));
  if (converter == nullptr) return OVMSGERR::UnknownCharset;
  if (text.size() > std::numeric_limits<std::int32_t>::max() / 2) return OVMSGERR::LimitExceeded;
  UErrorCode status = U_ZERO_ERROR;
  ucnv_setToUCallBack(converter.get(), failUndefined, nullptr, nullptr, nullptr, &status);
  const char* source = text.data();
  const char* const sourceEnd = source + text.size();
  std::size_t filled = 0;
  // Offsets count from where a call begins to read.
  out.characters.resize(text.size() + 16);
  out.offsets.resize(out.characters.size());
  while (true) {
    UChar* target = out.characters.data() + filled;
    const auto base = static_cast<std::int32_t>(source - text.data());
    const std::size_t first = filled;
    status = U_ZERO_ERROR;
    ucnv_toUnicode(converter.get(), &target, out.characters.data() + out.characters.size(), &source,
                   sourceEnd, out.offsets.data() + filled, true, &status);
    filled = static_cast<std::size_t>(target - out.characters.data());
    for (std::size_t i = first; i < filled; ++i) out.offsets[i] += base;
    if (status != U_BUFFER_OVERFLOW_ERROR) break;
    out.characters.resize(out.characters.size() * 2);
    out.offsets.resize(out.characters.size());
  }
  if (U_FAILURE(status)) {
    out = {};
    return OVMSGERR::MalformedText;
  }
  out.characters.resize(filled);
  out.offsets.resize(filled);
  return OVMSGERR::Ok;
}

bool encodeExactly(std::string_view utf8, std::string_view charset, std::string& out) {
  std::string again;
  if (convertCharset(utf8, "utf-8", charset, OnMisfit::Fail, OnMisfit::Fail, out) != OVMSGERR::Ok) {
    return false;
  }
  if (!isUtf8Name(charset) && (convertCharset(out, charset, "utf-8", OnMisfit::Fail, OnMisfit::Fail,
                                              again) != OVMSGERR::Ok ||
                               again != utf8)) {
    out.clear();
    return false;
  }
  return true;
}

CharsetEncoder::CharsetEncoder(std::string_view charset)
    : converter_(openConverter(charset).release()) {
  if (converter_ != nullptr) setMisfit(static_cast<UConverter*>(converter_), OnMisfit::Fail);
}

CharsetEncoder::~CharsetEncoder() {
  if (converter_ != nullptr) ucnv_close(static_cast<UConverter*>(converter_));
}

int CharsetEncoder::encode(std::u16string_view text, std::string& out) {
  auto* converter = static_cast<UConverter*>(converter_);
  ucnv_resetFromUnicode(converter);
  return fromUnicode(converter, text, out);
}

std::string utf8Of(std::u16string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    UChar32 c = text[i];
    if (U16_IS_LEAD(c) && i + 1 < text.size() && U16_IS_TRAIL(text[i + 1])) {
      c = U16_GET_SUPPLEMENTARY(c, text[++i]);
    } else if (U16_IS_SURROGATE(c)) {
      c = 0xFFFD;
    }
    std::array<char, 4> bytes{};
    std::size_t length = 0;
    U8_APPEND_UNSAFE(bytes.data(), length, c);
    result.append(bytes.data(), length);
  }
  return result;
}

std::u16string utf16Of(std::string_view utf8) {
  std::u16string result;
  const Converter converter = openConverter("utf-8");
  if (converter == nullptr) return result;
  UErrorCode status = U_ZERO_ERROR;
  ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_SUBSTITUTE, nullptr, nullptr, nullptr,
                      &status);
  const char* source = utf8.data();
  result.resize(utf8.size() + 1);
  UChar* target = result.data();
  status = U_ZERO_ERROR;
  ucnv_toUnicode(converter.get(), &target, result.data() + result.size(), &source,
                 utf8.data() + utf8.size(), nullptr, true, &status);
  result.resize(static_cast<std::size_t>(target - result.data()));
  return result;
}

}  // namespace host::message
