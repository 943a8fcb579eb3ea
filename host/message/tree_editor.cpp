#include "host/message/tree_editor.h"

#include <utility>

#include "host/message/charset.h"
#include "host/message/content_encoding.h"
#include "host/message/field_text.h"
#include "host/message/header_block.h"
#include "host/message/message.h"
#include "host/message/mime_values.h"
#include "host/message/render.h"
#include "library/platform/ov_msg_error.h"

namespace host::message {

namespace {

bool isAboutContent(std::string_view fieldName) {
  return startsWithIgnoreCase(fieldName, "content-");
}

std::string typeValue(const NewContent& content) {
  std::string value = content.contentType;
  if (content.charset != nullptr && *content.charset != '\0') {
    value.append("; charset=").append(content.charset);
  }
  return value;
}

/// A text and what to declare of it.
struct DeclaredText {
  std::string bytes;
  std::string charset;
};

// Bytes that are no text in \p charset become "?": a mail that tells of garbage goes out, too.
int declaredIn(std::string_view bytes, const std::string& charset, DeclaredText& text) {
  std::string utf8;
  int code = convertCharset(bytes, charset, "utf-8", OnMisfit::Fail, OnMisfit::Fail, utf8);
  text = {std::string(bytes), charset};
  if (code == OVMSGERR::Ok) return code;
  code =
      convertCharset(bytes, charset, "utf-8", OnMisfit::QuestionMark, OnMisfit::QuestionMark, utf8);
  if (code != OVMSGERR::Ok) return code;
  return convertCharset(utf8, "utf-8", charset, OnMisfit::QuestionMark, OnMisfit::QuestionMark,
                        text.bytes);
}

// What the bytes say in the charset that the entity declares, or else in UTF-8.
int declaredAsFits(std::string_view bytes, const std::string& declared, DeclaredText& text) {
  std::string utf8;
  const bool fits = convertCharset(bytes, declared, "utf-8", OnMisfit::Fail, OnMisfit::Fail,
                                   utf8) == OVMSGERR::Ok;
  const int code = declaredIn(bytes, fits ? declared : "utf-8", text);
  // Only what means ASCII is: seven-bit charsets do not.
  if (isAscii(text.bytes) && (!fits || utf8 == bytes)) text.charset = "us-ascii";
  return code;
}

bool hasBody(const Entity& entity) {
  return entity.kind() != OvMsgEntityKind::Leaf || !entity.body().empty();
}

}  // namespace

int TreeEditor::setContent(Entity& entity, const NewContent& content) {
  if (const int code = planContent(entity, content); code != OVMSGERR::Ok) return code;
  note(Change::Kind::PartChanged, entity, entity);
  commit();
  return OVMSGERR::Ok;
}

int TreeEditor::planContent(Entity& entity, const NewContent& content) {
  if (entity.detached_) return OVMSGERR::ForeignEntity;
  if (content.contentType == nullptr || !mime::isContentType(content.contentType) ||
      startsWithIgnoreCase(content.contentType, "multipart/") ||
      (content.charset != nullptr && !mime::isToken(content.charset))) {
    return OVMSGERR::InvalidArgument;
  }
  std::string encoded;
  TransferEncoding encoding = TransferEncoding::SevenBit;
  const int code = encodeContent(entity, entity.lineBreak().text(), content, encoded, encoding);
  if (code != OVMSGERR::Ok) return code;
  const std::string_view body = message_.keep(std::move(encoded));
  plan_.set(entity.body_, body);
  plan_.set(entity.tail_, body.substr(body.size()));
  planDeclaration(entity, content, encoding);
  const bool isMessage = startsWithIgnoreCase(content.contentType, "message/");
  plan_.add([&entity, isMessage] {
    while (entity.firstChild_ != nullptr) detach(*entity.firstChild_);
    entity.kind_ = isMessage ? OvMsgEntityKind::OpaqueMessage : OvMsgEntityKind::Leaf;
    entity.needsBlankLine_ = entity.blankLineLength_ == 0;
    entity.contentChanged_ = true;
    entity.touch();
  });
  planBreakBehind(entity);
  return OVMSGERR::Ok;
}

// Whatever else was said about the old content goes with it.
void TreeEditor::planDeclaration(Entity& entity, const NewContent& content,
                                 TransferEncoding encoding) {
  HeaderBlock& block = entity.block();
  const HeaderField* const type = block.find("content-type");
  const HeaderField* const transfer = block.find("content-transfer-encoding");
  plan_.add([&block, type, transfer] {
    block.removeIf([&](const HeaderField& field) {
      return isAboutContent(field.nameView()) && &field != type && &field != transfer;
    });
  });
  if (entity.parent_ == nullptr && block.find("mime-version") == nullptr) {
    planField(entity, "MIME-Version", "1.0");
  }
  planField(entity, "Content-Type", typeValue(content));
  planField(entity, "Content-Transfer-Encoding", nameOf(encoding));
}

void TreeEditor::planField(Entity& entity, std::string_view name, std::string_view value) {
  HeaderBlock& block = entity.block();
  auto fresh = newField(entity, name, value, entity.lineBreak());
  if (HeaderField* present = block.find(name)) {
    if (present->bytes() == fresh->bytes()) return;
    plan_.add([present, fresh = std::move(fresh)] { present->takeText(*fresh); });
    return;
  }
  block.makeRoomFor(4);
  plan_.add([&block, fresh = std::move(fresh)]() mutable {
    block.insert(block.endPosition(), std::move(fresh));
  });
}

std::unique_ptr<HeaderField> TreeEditor::newField(Entity& owner, std::string_view name,
                                                  std::string_view value,
                                                  LineBreak lineBreak) const {
  std::string text;
  composeField({name, value, nullptr}, lineBreak, true, text);
  return std::make_unique<HeaderField>(owner, std::move(text));
}

int TreeEditor::insertText(Entity& entity, const NewContent& content) {
  if (entity.detached_) return OVMSGERR::ForeignEntity;
  if (content.contentType == nullptr || !startsWithIgnoreCase(content.contentType, "text/") ||
      !mime::isContentType(content.contentType)) {
    return OVMSGERR::InvalidArgument;
  }
  DeclaredText text;
  int code = content.charset != nullptr
                 ? declaredIn(content.bytes, content.charset, text)
                 : declaredAsFits(content.bytes,
                                  entity.contentTypeParameter("charset").value_or(""), text);
  if (code != OVMSGERR::Ok) return code;
  const NewContent converted{text.bytes, content.contentType, text.charset.c_str(),
                             content.transferEncoding};
  if (!hasBody(entity)) return setContent(entity, converted);

  std::string body;
  TransferEncoding encoding = TransferEncoding::SevenBit;
  code = encodeContent(entity, entity.lineBreak().text(), converted, body, encoding);
  if (code != OVMSGERR::Ok) return code;
  Entity& part = message_.newEntity();
  part.body_ = message_.keep(std::move(body));
  part.tail_ = part.body_.substr(part.body_.size());
  part.needsBlankLine_ = true;
  HeaderBlock& block = part.block();
  const LineBreak lineBreak = entity.lineBreak();
  block.insert(0, newField(part, "Content-Type", typeValue(converted), lineBreak));
  block.insert(1, newField(part, "Content-Transfer-Encoding", nameOf(encoding), lineBreak));
  insert(entity, part, 0);
  return OVMSGERR::Ok;
}

int TreeEditor::insertCopy(Entity& entity, const Entity& source, int position) {
  if (entity.detached_) return OVMSGERR::ForeignEntity;
  Entity& part = copyTree(source);
  part.lead_ = {};
  if (hasBody(part)) part.needsBlankLine_ = part.needsBlankLine_ || part.blankLineLength_ == 0;
  insert(entity, part, position);
  return OVMSGERR::Ok;
}

int TreeEditor::attach(Entity& entity, const Message& message, int position) {
  class FactsSink final : public OvMsgSink {
   public:
    bool write(const char* data, std::size_t size) override {
      facts.add({data, size});
      return true;
    }
    LineFacts facts;
  };
  if (entity.detached_) return OVMSGERR::ForeignEntity;
  FactsSink sink;
  message.render(sink);
  Entity& part = message_.newEntity();
  part.needsBlankLine_ = true;
  HeaderBlock& block = part.block();
  const LineBreak lineBreak = entity.lineBreak();
  block.insert(0, newField(part, "Content-Type", "message/rfc822", lineBreak));
  const bool isLines = sink.facts.fitsLines() && !sink.facts.hasBareCr;
  if (!isLines || !sink.facts.isAscii) {
    const char* const encoding = isLines ? "8bit" : "binary";
    block.insert(1, newField(part, "Content-Transfer-Encoding", encoding, lineBreak));
  }
  block.insert(block.size(), newField(part, "Content-Disposition", "attachment", lineBreak));
  if (const Entity* root = message.firstEntity()) {
    part.kind_ = OvMsgEntityKind::Message;
    link(part, nullptr, copyTree(*root), nullptr);
  } else {
    part.kind_ = OvMsgEntityKind::OpaqueMessage;
    message_.keepBuffersOf(message);
    part.body_ = message.receivedBytes();
    part.tail_ = part.body_.substr(part.body_.size());
  }
  insert(entity, part, position);
  return OVMSGERR::Ok;
}

int TreeEditor::remove(Entity& entity) {
  if (entity.detached_) return OVMSGERR::ForeignEntity;
  if (entity.parent_ == nullptr) return OVMSGERR::InvalidArgument;
  const auto isOnly = [](const Entity& part) {
    return part.previousSibling_ == nullptr && part.nextSibling_ == nullptr;
  };
  Entity* top = &entity;
  while (isOnly(*top) && top->parent_->parent_ != nullptr) top = top->parent_;
  Entity& parent = *top->parent_;
  note(Change::Kind::PartRemoved, entity, entity);
  if (isOnly(*top)) {
    const int code = planContent(parent, {{}, "text/plain", "us-ascii", "7bit"});
    if (code != OVMSGERR::Ok) return code;
  } else {
    Entity* const next = top->nextSibling_;
    if (next != nullptr && (top->previousSibling_ != nullptr || !parent.body_.empty())) {
      planBreak(*next, next->lead_);
    } else if (next == nullptr) {
      planBreakBehind(*top);
    }
    plan_.add([top, &parent] {
      detach(*top);
      parent.contentChanged_ = true;
      parent.touch();
    });
  }
  commit();
  return OVMSGERR::Ok;
}

void TreeEditor::note(Change::Kind kind, const Entity& entity, const Entity& place) {
  plan_.note({kind, entity.describe(), place.path()});
}

void TreeEditor::commit() { plan_.commit(message_.changes_); }

void TreeEditor::detach(Entity& entity) {
  Entity& parent = *entity.parent_;
  (entity.previousSibling_ != nullptr ? entity.previousSibling_->nextSibling_
                                      : parent.firstChild_) = entity.nextSibling_;
  (entity.nextSibling_ != nullptr ? entity.nextSibling_->previousSibling_ : parent.lastChild_) =
      entity.previousSibling_;
  entity.parent_ = entity.previousSibling_ = entity.nextSibling_ = nullptr;
  for (Entity* inner = &entity; inner != nullptr; inner = inner->nextEntity()) {
    inner->detached_ = true;
  }
}

}  // namespace host::message
