#include "host/message/tree_editor.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "host/message/ascii.h"
#include "host/message/charset.h"
#include "host/message/field_text.h"
#include "host/message/header_block.h"
#include "host/message/message.h"
#include "host/message/message_id.h"
#include "host/message/mime_values.h"
#include "host/message/render.h"
#include "library/platform/ov_msg_error.h"

namespace host::message {

namespace {

constexpr std::size_t kMaxLine = 998;  // RFC 5322 section 2.1.1

bool isAboutContent(std::string_view fieldName) {
  return startsWithIgnoreCase(fieldName, "content-");
}

struct LineFacts {
  bool isAscii = true;
  bool hasNul = false;
  std::size_t longestLine = 0;
};

LineFacts lineFacts(std::string_view bytes) {
  LineFacts facts;
  std::size_t length = 0;
  for (const char c : bytes) {
    facts.isAscii = facts.isAscii && isAscii(c);
    facts.hasNul = facts.hasNul || c == '\0';
    length = c == '\n' || c == '\r' ? 0 : length + 1;
    facts.longestLine = std::max(facts.longestLine, length);
  }
  return facts;
}

/// Whether a line of \p bytes would be a delimiter to somebody who knows \p boundaries.
bool holdsDelimiter(std::string_view bytes, const std::set<std::string, std::less<>>& boundaries) {
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t end = std::min(bytes.find('\n', at), bytes.size());
    std::string_view line = bytes.substr(at, end - at);
    at = end + 1;
    if (!line.starts_with("--")) continue;
    line.remove_prefix(2);
    while (!line.empty() && isSpace(line.back())) line.remove_suffix(1);
    if (boundaries.count(line) != 0) return true;
    if (line.ends_with("--") && boundaries.count(line.substr(0, line.size() - 2)) != 0) return true;
  }
  return false;
}

bool isTextType(std::string_view type) { return startsWithIgnoreCase(type, "text/"); }

std::string typeValue(const NewContent& content) {
  std::string value = content.contentType;
  if (content.charset != nullptr && *content.charset != '\0') {
    value.append("; charset=").append(content.charset);
  }
  return value;
}

}  // namespace

// No quoted-printable or base64 text holds "=_" (RFC 2045 section 6.7).
std::string newBoundary() { return "=_" + newMessageId(); }

std::string delimiterLine(std::string_view boundary, LineBreak lineBreak) {
  return "--" + std::string(boundary) + std::string(lineBreak.text());
}

std::string boundaryOf(const Entity& multipart) {
  std::string boundary = multipart.contentTypeParameter("boundary").value_or("");
  while (!boundary.empty() && isSpace(boundary.back())) boundary.pop_back();
  return boundary;
}

std::set<std::string, std::less<>> boundariesAround(const Entity* entity) {
  std::set<std::string, std::less<>> boundaries;
  for (; entity != nullptr; entity = entity->parent()) {
    if (entity->kind() == OvMsgEntityKind::Multipart) boundaries.insert(boundaryOf(*entity));
  }
  return boundaries;
}

int TreeEditor::encode(const Entity& place, const NewContent& content, std::string& body,
                       TransferEncoding& encoding) const {
  const bool isText = isTextType(content.contentType);
  const std::string_view lineBreak = place.lineBreak().text();
  if (content.transferEncoding == nullptr) {
    const LineFacts facts = lineFacts(content.bytes);
    const bool plain = isText && facts.isAscii && !facts.hasNul && facts.longestLine <= kMaxLine;
    encoding = plain ? TransferEncoding::SevenBit : TransferEncoding::Base64;
  } else {
    encoding = transferEncodingOf(content.transferEncoding);
  }
  if (encoding == TransferEncoding::Unknown || encoding == TransferEncoding::UuEncode) {
    return OVMSGERR::InvalidArgument;
  }
  body = encodeBody(content.bytes, encoding, isText, lineBreak);
  if (encoding == TransferEncoding::SevenBit || encoding == TransferEncoding::EightBit) {
    const LineFacts facts = lineFacts(body);
    if (facts.hasNul || facts.longestLine > kMaxLine) return OVMSGERR::UnencodableText;
    if (encoding == TransferEncoding::SevenBit && !facts.isAscii) return OVMSGERR::UnencodableText;
  }
  if (encoding != TransferEncoding::Base64 && holdsDelimiter(body, boundariesAround(&place))) {
    encoding = TransferEncoding::Base64;
    body = encodeBody(content.bytes, encoding, isText, lineBreak);
  }
  return OVMSGERR::Ok;
}

void TreeEditor::setField(Entity& entity, std::string_view name, std::string_view value) {
  std::string text;
  composeField({name, value, nullptr}, entity.lineBreak(), true, text);
  HeaderBlock& block = entity.block();
  if (HeaderField* field = block.find(name)) {
    if (field->bytes() != text) field->replace(std::move(text));
  } else {
    block.insert(block.endPosition(), std::make_unique<HeaderField>(entity, std::move(text)));
  }
}

void TreeEditor::declareContent(Entity& entity, const std::string& contentType,
                                std::string_view transferEncoding) {
  HeaderBlock& block = entity.block();
  for (std::size_t i = block.size(); i-- > 0;) {
    const HeaderField& field = block.at(i);
    const bool kept = block.find(field.nameView()) == &field &&
                      (field.hasName("content-type") || field.hasName("content-transfer-encoding"));
    if (isAboutContent(field.nameView()) && !kept) block.take(i);
  }
  if (entity.parent_ == nullptr && block.find("mime-version") == nullptr) {
    setField(entity, "MIME-Version", "1.0");
  }
  setField(entity, "Content-Type", contentType);
  setField(entity, "Content-Transfer-Encoding", transferEncoding);
}

int TreeEditor::setContent(Entity& entity, const NewContent& content) {
  if (entity.detached_) return OVMSGERR::ForeignEntity;
  if (content.contentType == nullptr || !mime::isContentType(content.contentType) ||
      startsWithIgnoreCase(content.contentType, "multipart/")) {
    return OVMSGERR::InvalidArgument;
  }
  if (content.charset != nullptr && !mime::isToken(content.charset)) {
    return OVMSGERR::InvalidArgument;
  }
  std::string body;
  TransferEncoding encoding = TransferEncoding::SevenBit;
  if (const int code = encode(entity, content, body, encoding); code != OVMSGERR::Ok) return code;
  const std::string_view bytes = message_.keep(std::move(body));
  message_.note(Change::Kind::PartChanged, entity.describe(), entity);
  declareContent(entity, typeValue(content), nameOf(encoding));
  while (entity.firstChild_ != nullptr) detach(*entity.firstChild_);
  entity.kind_ = startsWithIgnoreCase(content.contentType, "message/")
                     ? OvMsgEntityKind::OpaqueMessage
                     : OvMsgEntityKind::Leaf;
  entity.body_ = bytes;
  entity.tail_ = bytes.substr(bytes.size());
  entity.needsBlankLine_ = entity.blankLineLength_ == 0;
  entity.contentChanged_ = true;
  entity.touch();
  ensureBreakBehind(entity);
  return OVMSGERR::Ok;
}

int TreeEditor::insertText(Entity& entity, const NewContent& content) {
  if (entity.detached_) return OVMSGERR::ForeignEntity;
  if (content.contentType == nullptr || !isTextType(content.contentType)) {
    return OVMSGERR::InvalidArgument;
  }
  const char* charset = content.charset;
  if (charset == nullptr) charset = isAscii(content.bytes) ? "us-ascii" : "utf-8";
  std::string text;
  const int code =
      convertCharset(content.bytes, "utf-8", charset, OnMisfit::Fail, OnMisfit::Fail, text);
  if (code != OVMSGERR::Ok) return code;
  const NewContent converted{text, content.contentType, charset, content.transferEncoding};
  const bool hasBody = entity.kind_ != OvMsgEntityKind::Leaf || !entity.body_.empty();
  if (!hasBody) return setContent(entity, converted);

  Entity& part = message_.newEntity();
  std::string body;
  TransferEncoding encoding = TransferEncoding::SevenBit;
  if (const int failure = encode(entity, converted, body, encoding); failure != OVMSGERR::Ok) {
    return failure;
  }
  part.body_ = message_.keep(std::move(body));
  part.tail_ = part.body_.substr(part.body_.size());
  part.needsBlankLine_ = true;
  setField(part, "Content-Type", typeValue(converted));
  setField(part, "Content-Transfer-Encoding", nameOf(encoding));
  Entity& multipart = entity.kind_ == OvMsgEntityKind::Multipart ? entity : wrap(entity);
  insertPart(multipart, part, 0);
  return OVMSGERR::Ok;
}

int TreeEditor::insertCopy(Entity& entity, const Entity& source, int position) {
  if (entity.detached_) return OVMSGERR::ForeignEntity;
  Entity& part = copyTree(source);
  part.lead_ = {};
  if (part.kind_ != OvMsgEntityKind::Leaf || !part.body_.empty()) {
    part.needsBlankLine_ = part.needsBlankLine_ || part.blankLineLength_ == 0;
  }
  Entity& multipart = entity.kind_ == OvMsgEntityKind::Multipart ? entity : wrap(entity);
  insertPart(multipart, part, position);
  return OVMSGERR::Ok;
}

int TreeEditor::attach(Entity& entity, const Message& message, int position) {
  if (entity.detached_) return OVMSGERR::ForeignEntity;
  Entity& part = message_.newEntity();
  part.needsBlankLine_ = true;
  class FactsSink final : public OvMsgSink {
   public:
    bool write(const char* data, std::size_t size) override {
      const LineFacts piece = lineFacts({data, size});
      facts.isAscii = facts.isAscii && piece.isAscii;
      facts.hasNul = facts.hasNul || piece.hasNul;
      facts.longestLine = std::max(facts.longestLine, piece.longestLine);
      return true;
    }
    LineFacts facts;
  } sink;
  message.render(sink);
  setField(part, "Content-Type", "message/rfc822");
  if (sink.facts.hasNul || sink.facts.longestLine > kMaxLine) {
    setField(part, "Content-Transfer-Encoding", "binary");
  } else if (!sink.facts.isAscii) {
    setField(part, "Content-Transfer-Encoding", "8bit");
  }
  setField(part, "Content-Disposition", "attachment");
  if (const Entity* root = message.firstEntity()) {
    part.kind_ = OvMsgEntityKind::Message;
    Entity& copy = copyTree(*root);
    copy.parent_ = &part;
    part.firstChild_ = part.lastChild_ = &copy;
    part.lastOrdinal_ = copy.ordinal_ = 1;
  } else {
    part.kind_ = OvMsgEntityKind::OpaqueMessage;
    message_.keepBuffersOf(message);
    part.body_ = message.receivedBytes();
    part.tail_ = part.body_.substr(part.body_.size());
  }
  Entity& multipart = entity.kind_ == OvMsgEntityKind::Multipart ? entity : wrap(entity);
  insertPart(multipart, part, position);
  return OVMSGERR::Ok;
}

int TreeEditor::remove(Entity& entity) {
  if (entity.detached_) return OVMSGERR::ForeignEntity;
  if (entity.parent_ == nullptr) return OVMSGERR::InvalidArgument;
  Entity* top = &entity;
  const auto isOnly = [](const Entity& part) {
    return part.previousSibling_ == nullptr && part.nextSibling_ == nullptr;
  };
  while (isOnly(*top) && top->parent_->parent_ != nullptr) top = top->parent_;
  message_.note(Change::Kind::PartRemoved, entity.describe(), entity);
  if (isOnly(*top)) {
    return setContent(*top->parent_, {{}, "text/plain", "us-ascii", "7bit"});
  }
  Entity& parent = *top->parent_;
  Entity* const before = top->previousSibling_;
  detach(*top);
  if (before != nullptr) {
    ensureBreakBehind(*before);
  } else if (!parent.body_.empty()) {
    giveBreak(*parent.firstChild_, parent.firstChild_->lead_);
  }
  parent.contentChanged_ = true;
  parent.touch();
  return OVMSGERR::Ok;
}

void TreeEditor::ensureBreakBehind(Entity& entity) {
  Entity* at = &entity;
  while (at->nextSibling_ == nullptr && at->parent_ != nullptr && at->parent_->tail_.empty()) {
    at = at->parent_;
  }
  Entity* const owner = at->nextSibling_ != nullptr ? at->nextSibling_ : at->parent_;
  if (owner == nullptr) return;
  giveBreak(*owner, owner == at->parent_ ? owner->tail_ : owner->lead_);
}

void TreeEditor::giveBreak(Entity& owner, std::string_view& delimiter) {
  if (!delimiter.starts_with('-')) return;
  std::string separated(owner.lineBreak().text());
  delimiter = message_.keep(std::move(separated.append(delimiter)));
  owner.touch();
}

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

// The wrapper takes the place of the entity and every field that is not about its content, so that
// the entity, under its old address, stays what holds the content.
Entity& TreeEditor::wrap(Entity& entity) {
  const std::string boundary = newBoundary();
  Entity& wrapper = message_.newEntity();
  splitFields(entity, wrapper, boundary);
  wrapper.kind_ = OvMsgEntityKind::Multipart;
  wrapper.needsBlankLine_ = true;
  wrapper.detached_ = false;
  wrapper.lead_ = entity.lead_;
  wrapper.ordinal_ = std::exchange(entity.ordinal_, 1);
  wrapper.lastOrdinal_ = 1;
  wrapper.parent_ = entity.parent_;
  wrapper.previousSibling_ = std::exchange(entity.previousSibling_, nullptr);
  wrapper.nextSibling_ = std::exchange(entity.nextSibling_, nullptr);
  wrapper.firstChild_ = wrapper.lastChild_ = &entity;
  entity.parent_ = &wrapper;
  if (wrapper.previousSibling_ != nullptr) wrapper.previousSibling_->nextSibling_ = &wrapper;
  if (wrapper.nextSibling_ != nullptr) wrapper.nextSibling_->previousSibling_ = &wrapper;
  if (Entity* parent = wrapper.parent_) {
    if (wrapper.previousSibling_ == nullptr) parent->firstChild_ = &wrapper;
    if (wrapper.nextSibling_ == nullptr) parent->lastChild_ = &wrapper;
  } else {
    message_.root_ = &wrapper;
  }
  const LineBreak lineBreak = wrapper.lineBreak();
  entity.lead_ = message_.keep(delimiterLine(boundary, lineBreak));
  wrapper.tail_ = message_.keep(closingLines(boundary, wrapper));
  entity.needsBlankLine_ = entity.blankLineLength_ == 0;
  entity.contentChanged_ = true;
  entity.touched_ = true;
  if (wrapper.parent_ != nullptr) wrapper.parent_->touch();
  ensureBreakBehind(wrapper);
  message_.note(Change::Kind::PartAdded, "multipart/mixed", wrapper);
  return wrapper;
}

void TreeEditor::splitFields(Entity& entity, Entity& wrapper, const std::string& boundary) {
  HeaderBlock& inner = entity.block();
  HeaderBlock& outer = wrapper.block();
  const std::string encoding = entity.transferEncoding();
  if (entity.defaultIsMessage_ && inner.find("content-type") == nullptr) {
    setField(entity, "Content-Type", "message/rfc822");
  }
  wrapper.defaultIsMessage_ = entity.defaultIsMessage_;
  entity.defaultIsMessage_ = false;
  const LineBreak lineBreak = entity.lineBreak();
  std::vector<std::unique_ptr<HeaderField>> all = inner.takeAll();
  for (auto& field : all) {
    const bool isType = field->hasName("content-type");
    if (isType && outer.find("content-type") == nullptr) {
      outer.insert(outer.size(), typeField(wrapper, boundary, lineBreak));
    }
    HeaderBlock& target = isAboutContent(field->nameView()) ? inner : outer;
    field->owner_ = &target == &inner ? &entity : &wrapper;
    target.insert(target.size(), std::move(field));
  }
  if (wrapper.parent_ == nullptr && entity.parent_ == nullptr &&
      outer.find("mime-version") == nullptr) {
    setField(wrapper, "MIME-Version", "1.0");
  }
  if (outer.find("content-type") == nullptr) {
    outer.insert(outer.endPosition(), typeField(wrapper, boundary, lineBreak));
  }
  // An encoding of a part is one of all around it (RFC 2045 section 6.4).
  if (encoding == "8bit" || encoding == "binary") {
    setField(wrapper, "Content-Transfer-Encoding", encoding);
  }
}

std::unique_ptr<HeaderField> TreeEditor::typeField(Entity& owner, const std::string& boundary,
                                                   LineBreak lineBreak) {
  std::string text;
  composeField({"Content-Type", "multipart/mixed; boundary=\"" + boundary + "\"", nullptr},
               lineBreak, true, text);
  return std::make_unique<HeaderField>(owner, std::move(text));
}

// A delimiter behind it brings a line break; where none follows, the closing line has its own.
std::string TreeEditor::closingLines(const std::string& boundary, const Entity& multipart) {
  const std::string_view lineBreak = multipart.lineBreak().text();
  std::string lines(lineBreak);
  lines.append("--").append(boundary).append("--");
  bool isInMultipart = false;
  for (const Entity* around = multipart.parent_; around != nullptr; around = around->parent_) {
    isInMultipart = isInMultipart || around->kind_ == OvMsgEntityKind::Multipart;
  }
  if (!isInMultipart) lines += lineBreak;
  return lines;
}

void TreeEditor::insertPart(Entity& multipart, Entity& part, int position) {
  renewBoundariesIn(multipart, part);
  Entity* next = multipart.firstChild_;
  for (int i = 0; i != position && next != nullptr; ++i) next = next->nextSibling_;
  Entity* previous = next != nullptr ? next->previousSibling_ : multipart.lastChild_;

  const std::string boundary = boundaryOf(multipart);
  const LineBreak lineBreak = multipart.lineBreak();
  const bool isFirstLine = previous == nullptr && multipart.body_.empty();
  std::string lead(isFirstLine ? std::string_view() : lineBreak.text());
  part.lead_ = message_.keep(lead + delimiterLine(boundary, lineBreak));
  if (multipart.tail_.empty()) {
    multipart.tail_ = message_.keep(closingLines(boundary, multipart));
  }

  for (Entity* inner = &part; inner != nullptr; inner = inner->nextEntity()) {
    inner->detached_ = false;
  }
  part.parent_ = &multipart;
  part.previousSibling_ = previous;
  part.nextSibling_ = next;
  (previous != nullptr ? previous->nextSibling_ : multipart.firstChild_) = &part;
  (next != nullptr ? next->previousSibling_ : multipart.lastChild_) = &part;
  part.ordinal_ = ++multipart.lastOrdinal_;
  ensureBreakBehind(part);
  multipart.contentChanged_ = true;
  multipart.touch();
  message_.note(Change::Kind::PartAdded, part.describe(), part);
}

}  // namespace host::message
