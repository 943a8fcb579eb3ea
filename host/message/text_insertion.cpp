#include "host/message/text_insertion.h"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "host/message/ascii.h"
#include "host/message/charset.h"
#include "host/message/html_insertion.h"
#include "host/message/message.h"
#include "host/message/plain_insertion.h"
#include "host/message/stamp_targets.h"
#include "host/message/text_as_attachment.h"
#include "host/message/text_charset.h"
#include "host/message/text_transfer.h"
#include "host/message/tree_editor.h"
#include "library/platform/ov_msg_error.h"

namespace host::message {

namespace {

constexpr char kAttachmentName[] = "stamp.txt";

/// CRLF and CR as LF.
std::string withLineFeeds(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\r') {
      result += text[i];
    } else if (i + 1 == text.size() || text[i + 1] != '\n') {
      result += '\n';
    }
  }
  return result;
}

bool isMixed(const Entity& entity) {
  return entity.kind() == OvMsgEntityKind::Multipart && entity.contentType() == "multipart/mixed";
}

/// What is shown with \p entity as one: a related multipart around it.
Entity& shownWith(Entity& entity) {
  Entity* whole = &entity;
  while (whole->parentEntity() != nullptr &&
         whole->parentEntity()->contentType() == "multipart/related") {
    whole = whole->parentEntity();
  }
  return *whole;
}

/// Whether nothing of the mail's text follows \p entity but the end.
bool endsMail(const Entity& entity) {
  for (const Entity* around = entity.parent(); around != nullptr; around = around->parent()) {
    if (around->kind() == OvMsgEntityKind::Multipart) return false;
  }
  return true;
}

class TextInserter {
 public:
  TextInserter(Message& message, OvMsgInsertPlace place, std::string lines,
               std::string_view destination)
      : message_(message),
        editor_(message),
        place_(place),
        lines_(std::move(lines)),
        destination_(destination) {}

  int asAttachment() {
    const NewTextPart part = newPart(kAttachmentName);
    Entity& root = *message_.firstEntity();
    const int code = isMixed(root) && root.firstChild() != nullptr
                         ? editor_.planTextInside(root, part, false)
                         : editor_.planTextBeside(root, part, false);
    if (code == OVMSGERR::Ok) editor_.commit();
    return code;
  }

  int intoBody() {
    const std::vector<Entity*> targets = stampTargets(message_, place_);
    for (Entity* target : targets) {
      if (intoText(*target)) continue;
      const int code = editor_.planTextBeside(shownWith(*target), newPart(nullptr), isTop());
      if (code != OVMSGERR::Ok) return code;
    }
    if (targets.empty()) {
      Entity& root = *message_.firstEntity();
      const int code = isMixed(root) && root.firstChild() != nullptr
                           ? editor_.planTextInside(root, newPart(nullptr), isTop())
                           : editor_.planTextBeside(root, newPart(nullptr), isTop());
      if (code != OVMSGERR::Ok) return code;
    }
    editor_.commit();
    return OVMSGERR::Ok;
  }

 private:
  bool isTop() const { return place_ == OvMsgInsertPlace::Top; }

  // The delimiter behind it brings the last line break.
  NewTextPart newPart(const char* attachmentName) const {
    std::string_view text = lines_;
    if (text.ends_with('\n')) text.remove_suffix(1);
    return {text, charsetFor(text, destination_), attachmentName};
  }

  /// \return false when the part cannot be changed without a doubt about what it holds.
  bool intoText(Entity& part) {
    if (part.kind() != OvMsgEntityKind::Leaf || !part.contentType().starts_with("text/")) {
      return false;
    }
    const TransferredText transferred(part);
    if (!transferred.isReadable()) return false;
    const bool isHtml = part.contentType() == "text/html";
    const TextContent content(transferred.content(),
                              part.contentTypeParameter("charset").value_or(""), isHtml);
    if (content.isOpaque()) return false;
    const LineBreak lineBreak = lineBreakOf(content.view(), transferred.lineBreak());
    const auto edited =
        insertInto(content, isHtml ? htmlEdit(part, content) : plainEdit(part, content),
                   destination_, lineBreak.text());
    if (!edited) return false;
    NewBody body{{}, transferred.encoding(), edited->charset};
    body.bytes = transferred.rewritten(*edited, body.encoding);
    editor_.planBody(part, std::move(body));
    return true;
  }

  TextEdit htmlEdit(const Entity& part, const TextContent& content) const {
    TextEdit edit = htmlInsertion(content.view(), content.begin(), lines_, place_);
    if (content.view().size() == content.begin() && endsMail(part)) edit.text += '\n';
    return edit;
  }

  TextEdit plainEdit(const Entity& part, const TextContent& content) const {
    const auto format = part.contentTypeParameter("format");
    const PlainText into{content.view(), content.begin(),
                         format && equalsIgnoreCase(trimmed(*format), "flowed"), endsMail(part)};
    return plainInsertion(into, lines_, place_);
  }

  Message& message_;
  TreeEditor editor_;
  OvMsgInsertPlace place_;
  std::string lines_;
  std::string_view destination_;
};

}  // namespace

int insertText(Message& message, const InsertedText& wanted) {
  if (wanted.place != OvMsgInsertPlace::Top && wanted.place != OvMsgInsertPlace::End) {
    return OVMSGERR::InvalidArgument;
  }
  if (message.firstEntity() == nullptr) return OVMSGERR::NoBody;
  // A fragment of a mail: whatever is added to it is in the way when they are put together.
  if (message.firstEntity()->contentType() == "message/partial") return OVMSGERR::NotSupported;
  // What an administrator wrote is text. Bytes that are none came from the message, through a
  // token: a mail must not wait for ever because of an odd byte in its header.
  std::string utf8;
  const int code = convertCharset(wanted.text, wanted.sourceCharset, "utf-8",
                                  OnMisfit::QuestionMark, OnMisfit::QuestionMark, utf8);
  if (code != OVMSGERR::Ok) return code;
  std::replace(utf8.begin(), utf8.end(), '\0', '?');
  if (utf8.empty()) return OVMSGERR::Ok;
  TextInserter inserter(message, wanted.place, withLineFeeds(utf8), wanted.destinationCharset);
  return isTextAsAttachment() ? inserter.asAttachment() : inserter.intoBody();
}

}  // namespace host::message
