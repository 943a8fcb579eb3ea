// A text set as a field's value, in any of several charsets, comes back when it is read; no line or
// encoded word is too long, and no text opens a second field. A received value is read without
// harm.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "fuzz/check.h"
#include "host/message/ascii.h"
#include "host/message/charset.h"
#include "host/message/encoded_text.h"
#include "host/message/encoded_word.h"
#include "host/message/header_block.h"
#include "host/message/message.h"
#include "library/platform/ov_msg_error.h"

namespace {

using fuzz::require;

using namespace host::message;  // NOLINT(google-build-using-namespace)

constexpr const char* kCharsets[] = {"utf-8",        "iso-2022-jp",  "shift_jis",    "euc-jp",
                                     "gb18030",      "gb2312",       "big5",         "euc-kr",
                                     "iso-2022-kr",  "koi8-r",       "windows-1250", "windows-1251",
                                     "windows-1252", "windows-1255", "windows-1256", "iso-8859-1",
                                     "iso-8859-15",  "us-ascii",     "hz-gb-2312",   "utf-7"};
constexpr const char* kFields[] = {"Subject", "From", "X-A", "Content-Description"};

bool convert(std::string_view text, const char* from, const char* to, std::string& out) {
  return convertCharset(text, from, to, OnMisfit::Fail, OnMisfit::Fail, out) == OVMSGERR::Ok;
}

/// Whether every character of \p utf8 alone comes back from \p charset, and none is a control.
bool isFaithful(std::string_view utf8, const char* charset) {
  for (std::size_t at = 0; at < utf8.size();) {
    std::size_t end = at + 1;
    while (end < utf8.size() && (static_cast<unsigned char>(utf8[end]) & 0xC0) == 0x80) ++end;
    const std::string_view character = utf8.substr(at, end - at);
    const auto first = static_cast<unsigned char>(character.front());
    if (first < 0x20 || first == 0x7F) return false;
    std::string bytes;
    std::string back;
    if (!convert(character, "utf-8", charset, bytes) || !convert(bytes, charset, "utf-8", back) ||
        back != character) {
      return false;
    }
    at = end;
  }
  return true;
}

/// \p text without blanks: a fold may stand for several.
std::string withoutBlanks(std::string text) {
  std::erase_if(text, [](char c) { return isSpace(c); });
  return text;
}

void checkLines(std::string_view field) {
  for (std::size_t from = 0; from < field.size();) {
    const std::size_t end = std::min(field.find('\n', from), field.size());
    const std::string_view line = field.substr(from, end - from);
    bool hasWord = false;
    for (auto word = findEncodedWord(line); word; word = findEncodedWord(line, word->end)) {
      require(word->end - word->begin <= kMaxEncodedWord);
      hasWord = true;
    }
    require(!hasWord || line.size() <= kMaxEncodedLine);
    from = end + 1;
  }
}

std::unique_ptr<Message> parse(std::string bytes) {
  return Message::parse(Buffer::adopt(std::move(bytes)));
}

void checkSet(const std::string& utf8, const char* name, const char* charset) {
  std::string bytes;
  if (!convert(utf8, "utf-8", charset, bytes) || bytes.find('\0') != std::string::npos) return;
  const auto message = parse(std::string(name) + ": before\nX-Last: x\n\nbody\n");
  OvMsgHeader* field = message->firstEntity()->headerAt(0);
  if (field->setValue(bytes.c_str(), charset) != OVMSGERR::Ok) return;
  const HeaderField& written = message->firstEntity()->header().at(0);
  const bool isSubject = std::string_view(name) == "Subject";
  if (isSubject && !isAscii(utf8)) checkLines(written.bytes());
  const auto again = parse(message->toString());
  require(again->firstEntity()->headerCount() == 2);
  require(again->firstEntity()->body() == "body\n");
  if (!isSubject || !isFaithful(utf8, charset)) return;
  const HeaderField& read = again->firstEntity()->header().at(0);
  require(withoutBlanks(read.decodedUtf8()) == withoutBlanks(utf8));
  int hadWords = 0;
  const std::string decoded = read.decodedValue(hadWords);
  require((hadWords != 0) == (read.charset() != nullptr));
  std::string back = decoded;
  if (hadWords != 0) require(convert(decoded, read.charset(), "utf-8", back));
  require(withoutBlanks(back) == withoutBlanks(utf8));
}

void checkRaw(const std::string& value) {
  const auto message = parse("Subject: before\nX-Last: x\n\nbody\n");
  OvMsgHeader* field = message->firstEntity()->headerAt(0);
  require(field->setRawValue(value.c_str(), nullptr) == OVMSGERR::Ok);
  require(field->setValue(value.c_str(), nullptr) == OVMSGERR::Ok);
  const auto again = parse(message->toString());
  require(again->firstEntity()->headerCount() == 2);
}

void readReceived(const std::string& value) {
  const auto message = parse("Subject:" + value + "\n\nbody\n");
  Entity* root = message->firstEntity();
  for (int i = 0; root != nullptr && i < root->headerCount(); ++i) {
    OvMsgHeader* field = root->headerAt(i);
    int hadWords = 0;
    require(field->decodedValue(hadWords) != nullptr && field->rawValue() != nullptr);
    require((hadWords != 0) == (field->charset() != nullptr));
    require(isUtf8(static_cast<HeaderField*>(field)->decodedUtf8()));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2 || size > 4096) return 0;
  const char* charset = kCharsets[data[0] % std::size(kCharsets)];
  const char* name = kFields[data[1] % std::size(kFields)];
  const std::string text(reinterpret_cast<const char*>(data) + 2, size - 2);
  readReceived(text);
  const std::string value = text.substr(0, text.find('\0'));
  checkRaw(value);
  if (isUtf8(value)) checkSet(value, name, charset);
  return 0;
}
