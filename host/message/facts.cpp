#include "host/message/facts.h"

#include "host/message/charset.h"
#include "host/message/encoded_text.h"
#include "host/message/header_block.h"
#include "host/message/message.h"
#include "library/platform/ov_msg_error.h"

namespace host::message {

namespace {

/// \p value in UTF-8, its encoded words left as they are.
std::string plainUtf8(const std::string& value, std::initializer_list<const char*> charsets) {
  const bool hasEscape = value.find('\x1b') != std::string::npos;
  if (isAscii(value) && !hasEscape) return value;
  std::string utf8;
  for (const char* charset : charsets) {
    if (charset != nullptr && *charset != '\0' &&
        convertCharset(value, charset, "utf-8", OnMisfit::Fail, OnMisfit::Fail, utf8) ==
            OVMSGERR::Ok) {
      return utf8;
    }
  }
  return value;
}

/// Mail programs give names to texts that are all there is to read: a mail's only text, one of its
/// alternatives.
bool isShownWhateverItsName(const Entity& entity) {
  const std::string type = entity.contentType();
  const Entity* around = entity.parent();
  return (type == "text/plain" || type == "text/html") &&
         (around == nullptr || around->contentType() == "multipart/alternative");
}

}  // namespace

std::optional<std::string> decodedSubject(const Message& message,
                                          std::initializer_list<const char*> charsets) {
  const Entity* root = message.firstEntity();
  const HeaderField* field = root == nullptr ? nullptr : root->field("subject");
  if (field == nullptr) return std::nullopt;
  return decodedText(plainUtf8(field->unfoldedValue(), charsets));
}

std::string contentAsUtf8(const Entity& entity, std::size_t limit) {
  std::string content = entity.decodedContent(limit);
  const std::string declared = entity.contentTypeParameter("charset").value_or(std::string());
  std::string utf8;
  if (isUtf8(content) && (isAscii(content) || declared.empty()) && !isSevenBitNonAscii(declared)) {
    return content;
  }
  // A limit may cut a character in two, which is no reason to take the text for another charset.
  if (convertCharset(content, declared, "utf-8", OnMisfit::QuestionMark, OnMisfit::QuestionMark,
                     utf8) == OVMSGERR::Ok) {
    return utf8;
  }
  if (isUtf8(content)) return content;
  convertCharset(content, "iso-8859-1", "utf-8", OnMisfit::QuestionMark, OnMisfit::QuestionMark,
                 utf8);
  return utf8;
}

bool isBodyText(const Entity& entity) {
  if (entity.kind() != OvMsgEntityKind::Leaf || !entity.contentType().starts_with("text/") ||
      entity.disposition() == "attachment" ||
      (entity.fileNameText() && !isShownWhateverItsName(entity))) {
    return false;
  }
  for (const Entity* around = entity.parent(); around != nullptr; around = around->parent()) {
    if (around->kind() == OvMsgEntityKind::Message) return false;
  }
  return true;
}

}  // namespace host::message
