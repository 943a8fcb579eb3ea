#include "host/message/text_charset.h"

#include <algorithm>
#include <array>
#include <utility>

#include "host/message/ascii.h"
#include "host/message/html_insertion.h"
#include "host/message/mime_values.h"
#include "library/platform/ov_msg_error.h"

namespace host::message {

namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kUtf8 = "utf-8";

/// The charset whose text senders label with another name of which it is a superset.
std::string_view widerCharset(std::string_view charset) {
  struct Row {
    std::string_view name;
    std::string_view wider;
  };
  constexpr std::array<Row, 10> kRows{{{"iso-8859-1", "windows-1252"},
                                       {"us-ascii", "windows-1252"},
                                       {"iso-8859-9", "windows-1254"},
                                       {"gb2312", "gb18030"},
                                       {"gbk", "gb18030"},
                                       {"ks_c_5601-1987", "windows-949"},
                                       {"euc-kr", "windows-949"},
                                       {"big5", "big5-hkscs"},
                                       {"shift_jis", "windows-31j"},
                                       {"tis-620", "windows-874"}}};
  for (const Row& row : kRows) {
    if (equalsIgnoreCase(charset, row.name)) return row.wider;
  }
  return {};
}

/// C1 controls in ISO-8859-1 are characters of Windows-1252 that were labelled wrongly.
bool hasC1(std::string_view bytes) {
  return std::any_of(bytes.begin(), bytes.end(), [](char c) {
    return static_cast<unsigned char>(c) >= 0x80 && static_cast<unsigned char>(c) < 0xA0;
  });
}

bool hasUtf16Mark(std::string_view bytes) {
  return bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF");
}

/// Whether more second bytes than first ones are zero, as of ASCII characters in UTF-16.
bool looksLittleEndian(std::string_view bytes) {
  std::array<std::size_t, 2> zeros{};
  for (std::size_t i = 0; i < bytes.size(); ++i) zeros[i % 2] += bytes[i] == '\0' ? 1 : 0;
  return zeros[1] > zeros[0];
}

/// Whether a text can be declared to be in \p name: ASCII must stay ASCII in it.
bool isForMail(std::string_view name) {
  if (!mime::isToken(name)) return false;
  std::string sample;
  for (char c = ' '; c < 127; ++c) sample += c;
  std::string written;
  return encodeExactly(sample, name, written) && written == sample;
}

bool readAs(std::string_view bytes, std::string_view charset, std::string& utf8) {
  return convertCharset(bytes, charset, kUtf8, OnMisfit::Fail, OnMisfit::Fail, utf8) ==
         OVMSGERR::Ok;
}

/// The same, also under the charset that \p charset is often confused with.
bool readWith(std::string_view bytes, std::string_view charset, std::string& utf8) {
  const std::string_view wider = widerCharset(charset);
  if (equalsIgnoreCase(charset, "iso-8859-1") && hasC1(bytes)) charset = wider;
  return readAs(bytes, charset, utf8) || (!wider.empty() && readAs(bytes, wider, utf8));
}

/// One edit behind the other, over \p text; \p edits are sorted.
std::string applied(std::string_view text, const std::vector<TextEdit>& edits) {
  std::string result;
  std::size_t at = 0;
  for (const TextEdit& edit : edits) {
    result.append(text.substr(at, edit.at - at)).append(edit.text);
    at = edit.at + edit.length;
  }
  return result.append(text.substr(at));
}

/// The insertion and what it makes necessary, in order.
std::vector<TextEdit> editsFor(const TextContent& content, std::string_view view, std::size_t begin,
                               const TextEdit& insertion, std::string_view charset) {
  std::vector<TextEdit> edits;
  if (content.isHtml()) edits = charsetCorrections(view, begin, charset);
  const auto place = std::find_if(edits.begin(), edits.end(),
                                  [&](const TextEdit& edit) { return edit.at >= insertion.at; });
  edits.insert(place, insertion);
  return edits;
}

class Rewriter {
 public:
  Rewriter(const TextContent& content, const TextEdit& insertion, std::string_view lineBreak)
      : content_(content), insertion_(insertion) {
    insertion_.text = withLineBreak(insertion.text, lineBreak);
  }

  std::optional<EditedText> keepingCharset() const {
    const std::string& charset = content_.charset();
    if (!content_.isBytewise()) return splicedIntoCharacters();
    EditedText edited;
    edited.insertedAt = insertion_.at;
    if (message::isAscii(insertion_.text)) {
      edited.bytes = insertion_.text;
    } else if (charset.empty() || !encodeExactly(insertion_.text, charset, edited.bytes)) {
      return std::nullopt;
    }
    if (content_.needsDeclaration()) edited.charset = charset;
    return edited;
  }

  std::optional<EditedText> inCharset(std::string_view charset) const {
    EditedText edited;
    edited.charset = charset;
    if (content_.isBytewise() && content_.isAscii()) {
      auto edits = editsFor(content_, content_.view(), content_.begin(), insertion_, charset);
      if (!encodeExactly(insertion_.text, charset, edited.bytes)) return std::nullopt;
      if (edits.size() == 1) {
        edited.insertedAt = insertion_.at;
        return edited;
      }
      for (TextEdit& edit : edits) {
        if (edit.length == 0) edit.text = edited.bytes;
      }
      edited.bytes = applied(content_.bytes(), edits);
      return edited;
    }
    std::string before;
    std::string behind;
    if (!readSides(before, behind)) return std::nullopt;
    const std::string whole = before + behind;
    const TextEdit insertion{before.size(), 0, insertion_.text};
    const std::size_t begin = whole.starts_with(kUtf8Mark) ? kUtf8Mark.size() : 0;
    std::string text = applied(whole, editsFor(content_, whole, begin, insertion, charset));
    if (begin != 0 && !equalsIgnoreCase(charset, kUtf8)) text.erase(0, begin);
    if (!encodeExactly(text, charset, edited.bytes)) return std::nullopt;
    return edited;
  }

  std::optional<EditedText> withReferencesOnly() const {
    if (!content_.isHtml() || !content_.isBytewise()) return std::nullopt;
    return EditedText{withReferences(insertion_.text), {}, insertion_.at};
  }

 private:
  bool readSides(std::string& before, std::string& behind) const {
    if (content_.isBytewise()) {
      const std::string_view bytes = content_.bytes();
      return readWith(bytes.substr(0, insertion_.at), content_.charset(), before) &&
             readWith(bytes.substr(insertion_.at), content_.charset(), behind);
    }
    const std::u16string_view units = content_.characters().characters;
    before = utf8Of(units.substr(0, insertion_.at));
    behind = utf8Of(units.substr(insertion_.at));
    return true;
  }

  /// In a charset with shifts or wide units: put in as it stands if that reads right, else all of
  /// the text written anew.
  std::optional<EditedText> splicedIntoCharacters() const {
    const std::u16string_view units = content_.characters().characters;
    const std::u16string expected = std::u16string(units.substr(0, insertion_.at)) +
                                    utf16Of(insertion_.text) +
                                    std::u16string(units.substr(insertion_.at));
    const std::string_view bytes = content_.bytes();
    const auto& offsets = content_.characters().offsets;
    EditedText edited;
    const std::size_t at = insertion_.at < offsets.size()
                               ? static_cast<std::size_t>(offsets[insertion_.at])
                               : bytes.size();
    edited.insertedAt = at;
    if (!encodeUnits(utf16Of(insertion_.text), edited.bytes)) return std::nullopt;
    std::string whole(bytes.substr(0, at));
    whole.append(edited.bytes).append(bytes.substr(at));
    if (reads(whole, expected)) return edited;
    edited.insertedAt.reset();
    if (!encodeUnits(expected, edited.bytes)) return std::nullopt;
    if (bytes.starts_with("\xFF\xFE")) edited.bytes.insert(0, "\xFF\xFE");
    if (bytes.starts_with("\xFE\xFF")) edited.bytes.insert(0, "\xFE\xFF");
    if (reads(edited.bytes, expected)) return edited;
    return std::nullopt;
  }

  bool encodeUnits(std::u16string_view units, std::string& out) const {
    std::string_view charset = content_.charset();
    if (equalsIgnoreCase(charset, "utf-16")) {
      charset = content_.bytes().starts_with("\xFF\xFE") ? "utf-16le" : "utf-16be";
    }
    CharsetEncoder encoder(charset);
    return encoder.isValid() && encoder.encode(units, out) == OVMSGERR::Ok;
  }

  bool reads(std::string_view bytes, const std::u16string& expected) const {
    DecodedText again;
    return decodeText(bytes, content_.charset(), again) == OVMSGERR::Ok &&
           again.characters == expected;
  }

  const TextContent& content_;
  TextEdit insertion_;
};

}  // namespace

TextContent::TextContent(std::string_view content, std::string_view declared, bool isHtml)
    : bytes_(content), isAscii_(message::isAscii(content)), isHtml_(isHtml) {
  findCharset(trimmed(declared));
  if (isBytewise_) {
    if (bytes_.starts_with(kUtf8Mark)) begin_ = kUtf8Mark.size();
  } else if (!isOpaque_) {
    readCharacters();
  }
}

void TextContent::findCharset(std::string_view declared) {
  const bool isSilent = declared.empty() || equalsIgnoreCase(declared, "us-ascii");
  if (isSilent || !isKnownCharset(declared)) {
    detect(declared);
    return;
  }
  charset_ = lowered(declared);
  isBytewise_ = isAsciiSuperset(charset_);
  // Without a mark it is big-endian (RFC 2781 section 4.3), but not for those who write it.
  if (charset_ == "utf-16" && !hasUtf16Mark(bytes_) && looksLittleEndian(bytes_)) {
    charset_ = "utf-16le";
  }
}

void TextContent::detect(std::string_view declared) {
  const bool hasNul = bytes_.find('\0') != std::string_view::npos;
  const bool hasEscape = bytes_.find('\x1b') != std::string_view::npos;
  const bool isSilent = declared.empty() || equalsIgnoreCase(declared, "us-ascii");
  DecodedText ignored;
  if (hasUtf16Mark(bytes_) && decodeText(bytes_, "utf-16", ignored) == OVMSGERR::Ok) {
    charset_ = "utf-16";
    isBytewise_ = false;
  } else if (hasNul) {
    isOpaque_ = true;
  } else if (hasEscape) {
    // What Japanese mail is before anybody labels it.
    isOpaque_ = !isSilent || decodeText(bytes_, "iso-2022-jp", ignored) != OVMSGERR::Ok;
    charset_ = isOpaque_ ? "" : "iso-2022-jp";
    isBytewise_ = false;
  } else if (isAscii_) {
    charset_ = isSilent ? "us-ascii" : "";
    return;
  } else {
    const std::string_view inHtml = isHtml_ ? charsetInHtml(bytes_, 0) : std::string_view();
    if (declared.empty() && isAsciiSuperset(inHtml)) {
      charset_ = lowered(inHtml);
      return;  // readers find it where we did
    }
    if (isUtf8(bytes_)) charset_ = kUtf8;
  }
  needsDeclaration_ = !charset_.empty();
}

void TextContent::readCharacters() {
  if (decodeText(bytes_, charset_, characters_) != OVMSGERR::Ok) {
    // What fails under its label and is UTF-8 throughout was labelled wrongly.
    isOpaque_ = isAscii_ || !isUtf8(bytes_);
    isBytewise_ = needsDeclaration_ = !isOpaque_;
    if (!isOpaque_) charset_ = kUtf8;
    return;
  }
  const std::u16string& units = characters_.characters;
  view_.resize(units.size());
  std::transform(units.begin(), units.end(), view_.begin(),
                 [](char16_t c) { return c < 0x80 ? static_cast<char>(c) : '\x80'; });
  if (!units.empty() && units.front() == 0xFEFF) begin_ = 1;
}

std::optional<EditedText> insertInto(const TextContent& content, const TextEdit& insertion,
                                     std::string_view destination, std::string_view lineBreak) {
  if (content.isOpaque()) return std::nullopt;
  const Rewriter rewriter(content, insertion, lineBreak);
  if (auto edited = rewriter.keepingCharset()) return edited;
  if (!content.charset().empty() || content.isAscii()) {
    for (const std::string_view charset : {destination, kUtf8}) {
      if (charset.empty() || !isForMail(charset)) continue;
      if (auto edited = rewriter.inCharset(charset)) return edited;
    }
  }
  return rewriter.withReferencesOnly();
}

std::string charsetFor(std::string_view utf8, std::string_view destination) {
  if (isAscii(utf8)) return "us-ascii";
  std::string ignored;
  const bool carries =
      !destination.empty() && isForMail(destination) && encodeExactly(utf8, destination, ignored);
  return std::string(carries ? destination : kUtf8);
}

}  // namespace host::message
