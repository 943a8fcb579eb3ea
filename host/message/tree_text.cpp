#include <utility>

#include "host/message/charset.h"
#include "host/message/content_encoding.h"
#include "host/message/header_block.h"
#include "host/message/message.h"
#include "host/message/mime_values.h"
#include "host/message/tree_editor.h"
#include "library/platform/ov_msg_error.h"

namespace host::message {

namespace {

/// The value of a Content-Type field with another charset, all else as it stands; in full where it
/// cannot be read.
std::string withCharset(const Entity& entity, const std::string& charset) {
  if (const HeaderField* present = entity.field("content-type")) {
    std::string value = mime::withWritten(trimmed(present->rawValueView()), "charset", charset);
    const std::string unfolded = mime::unfolded(value);
    if (mime::isContentType(mime::properValue(unfolded)) &&
        mime::contentType(unfolded) == entity.contentType() &&
        mime::contentTypeParameter(unfolded, "charset") == charset) {
      return value;
    }
  }
  return entity.contentType() + "; charset=" + charset;
}

bool isMixed(const Entity& entity) {
  return entity.kind() == OvMsgEntityKind::Multipart && entity.contentType() == "multipart/mixed";
}

}  // namespace

void TreeEditor::planBody(Entity& entity, NewBody body) {
  const std::string_view bytes = message_.keep(std::move(body.bytes));
  plan_.set(entity.body_, bytes);
  plan_.set(entity.tail_, bytes.substr(bytes.size()));
  planBreakBehind(entity);
  HeaderBlock& block = entity.block();
  const bool namesEncoding = transferEncodingOf(entity.transferEncoding()) != body.encoding;
  if (!body.charset.empty()) {
    planField(entity, "Content-Type", withCharset(entity, body.charset));
  }
  if (namesEncoding) planField(entity, "Content-Transfer-Encoding", nameOf(body.encoding));
  if ((namesEncoding || !body.charset.empty()) && entity.parent_ == nullptr &&
      block.find("mime-version") == nullptr) {
    planField(entity, "MIME-Version", "1.0");
  }
  plan_.add([&entity, &block] {
    block.removeAll("content-md5");  // of the old content (RFC 1864)
    entity.needsBlankLine_ = entity.blankLineLength_ == 0;
    entity.contentChanged_ = true;
    entity.touch();
  });
  note(Change::Kind::PartChanged, entity, entity);
}

int TreeEditor::makeTextPart(const Entity& place, const NewTextPart& text, Entity*& part) {
  std::string converted;
  int code =
      convertCharset(text.text, "utf-8", text.charset, OnMisfit::Fail, OnMisfit::Fail, converted);
  if (code != OVMSGERR::Ok) return code;
  const LineBreak lineBreak = place.lineBreak();
  LineFacts facts;
  facts.add(converted);
  const bool isPlain = facts.isAscii && facts.fitsLines();
  const NewContent content{converted, "text/plain", text.charset.c_str(),
                           isPlain ? "7bit" : "quoted-printable"};
  std::string body;
  TransferEncoding encoding = TransferEncoding::SevenBit;
  code = encodeContent(place, lineBreak.text(), content, body, encoding);
  if (code != OVMSGERR::Ok) return code;
  part = &message_.newEntity();
  part->body_ = message_.keep(std::move(body));
  part->tail_ = part->body_.substr(part->body_.size());
  part->needsBlankLine_ = true;
  HeaderBlock& block = part->block();
  const auto add = [&](std::string_view name, std::string_view value) {
    block.insert(block.size(), newField(*part, name, value, lineBreak));
  };
  add("Content-Type", "text/plain; charset=" + text.charset);
  add("Content-Transfer-Encoding", nameOf(encoding));
  if (text.attachmentName != nullptr) {
    add("Content-Disposition", "attachment; filename=\"" + std::string(text.attachmentName) + "\"");
  }
  return OVMSGERR::Ok;
}

int TreeEditor::planTextBeside(Entity& entity, const NewTextPart& text, bool isBefore) {
  Entity* part = nullptr;
  if (const int code = makeTextPart(entity, text, part); code != OVMSGERR::Ok) return code;
  planAttached(*part);
  if (entity.parent_ == nullptr || !isMixed(*entity.parent_)) {
    planWrapping(entity, *part, isBefore);
    return OVMSGERR::Ok;
  }
  int position = isBefore ? 0 : 1;
  for (const Entity* before = entity.previousSibling_; before != nullptr;
       before = before->previousSibling_) {
    ++position;
  }
  planInsertion(*entity.parent_, *part, position);
  return OVMSGERR::Ok;
}

int TreeEditor::planTextInside(Entity& multipart, const NewTextPart& text, bool isFirst) {
  Entity* part = nullptr;
  if (const int code = makeTextPart(multipart, text, part); code != OVMSGERR::Ok) return code;
  planAttached(*part);
  planInsertion(multipart, *part, isFirst ? 0 : -1);
  return OVMSGERR::Ok;
}

}  // namespace host::message
