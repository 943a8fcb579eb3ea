#include "host/message/entity.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "host/message/ascii.h"
#include "host/message/declared_names.h"
#include "host/message/field_text.h"
#include "host/message/file_name.h"
#include "host/message/guard.h"
#include "host/message/header_block.h"
#include "host/message/message.h"
#include "host/message/mime_values.h"
#include "host/message/sinks.h"
#include "host/message/transfer_encoding.h"
#include "host/message/tree_editor.h"
#include "library/platform/ov_msg_functions.h"

namespace host::message {

namespace {

constexpr std::string_view kContentType = "content-type";
constexpr std::string_view kDisposition = "content-disposition";

}  // namespace

Entity::Entity(Message& message) : message_(&message) {}
Entity::~Entity() = default;

HeaderBlock& Entity::block() const {
  if (block_ == nullptr) {
    // The block's fields lead back here; a const entity hands out no way to change them.
    block_ = std::make_unique<HeaderBlock>(const_cast<Entity&>(*this), fields_,
                                           message_->limits_.maxHeaderFields);
  }
  return *block_;
}

void Entity::touch() {
  for (Entity* entity = this; entity != nullptr && !entity->touched_; entity = entity->parent_) {
    entity->touched_ = true;
  }
}

LineBreak Entity::lineBreak() const {
  std::string_view sample = fields_;
  if (sample.empty() && block_ != nullptr && block_->size() > 0) sample = block_->at(0).bytes();
  return lineBreakOf(sample, message_->lineBreak_);
}

LineBreak Entity::lineBreakOfBody() const { return lineBreakOf(body_, lineBreak()); }

const Entity* Entity::next() const {
  if (firstChild_ != nullptr) return firstChild_;
  const Entity* entity = this;
  while (entity != nullptr && entity->nextSibling_ == nullptr) entity = entity->parent_;
  return entity == nullptr ? nullptr : entity->nextSibling_;
}

Entity* Entity::nextEntity() { return const_cast<Entity*>(std::as_const(*this).next()); }

bool Entity::isSubordinate() const { return message_->root_ != this; }

int Entity::headerCount() const {
  return guarded(0, [&] { return static_cast<int>(block().size()); });
}

OvMsgHeader* Entity::headerAt(int index) {
  return guarded<OvMsgHeader*>(nullptr, [&]() -> OvMsgHeader* {
    if (index < 0 || static_cast<std::size_t>(index) >= block().size()) return nullptr;
    return &block().at(static_cast<std::size_t>(index));
  });
}

OvMsgHeader* Entity::header(const char* name) {
  return guarded<OvMsgHeader*>(
      nullptr, [&]() -> OvMsgHeader* { return name == nullptr ? nullptr : block().find(name); });
}

bool Entity::addHeader(int position, const char* name, const char* value, const char* charset) {
  return guarded(false, [&] {
    if (name == nullptr || value == nullptr) return false;
    HeaderBlock& fields = block();
    std::size_t index = position < 0 ? fields.endPosition() : static_cast<std::size_t>(position);
    index = std::min(index, fields.size());
    // Behind a field that lacks its line break, at the end of a message, the new one lacks it too.
    const bool terminated =
        index < fields.size() || index == 0 || fields.at(index - 1).bytes().ends_with('\n');
    std::string text;
    if (composeField({name, value, charset}, lineBreak(), terminated, text) != OVMSGERR::Ok) {
      return false;
    }
    auto field = std::make_unique<HeaderField>(*this, std::move(text));
    fields.makeRoomFor(1);
    message_->note(Change::Kind::HeaderAdded, name, *this);
    fields.insert(index, std::move(field));
    touch();
    return true;
  });
}

bool Entity::removeHeader(const char* name) {
  return guarded(false, [&] {
    if (name == nullptr || block().find(name) == nullptr) return false;
    message_->note(Change::Kind::HeaderRemoved, name, *this);
    block().removeAll(name);
    touch();
    return true;
  });
}

bool Entity::removeHeaderAt(int index) {
  return guarded(false, [&] {
    if (index < 0 || static_cast<std::size_t>(index) >= block().size()) return false;
    const auto at = static_cast<std::size_t>(index);
    message_->note(Change::Kind::HeaderRemoved, std::string(block().at(at).nameView()), *this);
    block().take(at);
    touch();
    return true;
  });
}

OvMsgFileName* Entity::fileName() {
  return guarded<OvMsgFileName*>(nullptr, [&]() -> OvMsgFileName* {
    auto declared = declaredFileName();
    if (!declared) return nullptr;
    std::unique_ptr<FileName>& object = block().fileName();
    if (object == nullptr) {
      object = std::make_unique<FileName>(std::move(*declared));
    } else {
      object->set(std::move(*declared));
    }
    return object.get();
  });
}

int Entity::setContent(const OvMsgResourceLocator* content, const char* contentType,
                       const char* charset, const char* transferEncoding) {
  return guardedCode([&]() -> int {
    if (content == nullptr) return OVMSGERR::InvalidArgument;
    const std::string_view bytes(content->data(), content->size());
    return TreeEditor(*message_).setContent(*this, {bytes, contentType, charset, transferEncoding});
  });
}

int Entity::insertTextBody(const OvMsgResourceLocator* text, const char* contentType,
                           const char* charset, const char* transferEncoding) {
  return guardedCode([&]() -> int {
    if (text == nullptr) return OVMSGERR::InvalidArgument;
    const std::string_view bytes(text->data(), text->size());
    return TreeEditor(*message_).insertText(*this, {bytes, contentType, charset, transferEncoding});
  });
}

int Entity::insertChild(const OvMsgEntity* child, int position) {
  return guardedCode([&]() -> int {
    const auto* entity = dynamic_cast<const Entity*>(child);
    if (entity == nullptr) return OVMSGERR::InvalidArgument;
    return TreeEditor(*message_).insertCopy(*this, *entity, position);
  });
}

int Entity::attachMessage(const OvMsgMailMessage* message, int position) {
  return guardedCode([&]() -> int {
    const auto* whole = dynamic_cast<const Message*>(message);
    if (whole == nullptr) return OVMSGERR::InvalidArgument;
    return TreeEditor(*message_).attach(*this, *whole, position);
  });
}

const HeaderField* Entity::field(std::string_view name) const { return block().find(name); }
const HeaderBlock& Entity::header() const { return block(); }

// Read straight from the bytes as long as nobody has asked for field objects: a message may have a
// million parts whose types are asked for.
std::optional<std::string> Entity::fieldValue(std::string_view name) const {
  if (block_ != nullptr) {
    const HeaderField* found = block_->find(name);
    return found == nullptr ? std::nullopt : std::optional(found->unfoldedValue());
  }
  const char* const end = fields_.data() + fields_.size();
  for (const char* p = fields_.data(); p < end;) {
    const RawField field = readField(p, end);
    if (field.nameLength == name.size() &&
        equalsIgnoreCase(field.bytes.substr(0, field.nameLength), name)) {
      return mime::unfolded(field.bytes.substr(field.valueOffset));
    }
    p += field.bytes.size();
  }
  return std::nullopt;
}

std::string Entity::contentType() const {
  const auto value = fieldValue(kContentType);
  if (!value) return defaultIsMessage_ ? "message/rfc822" : "text/plain";
  std::string type = mime::contentType(*value);
  return type.empty() ? "text/plain" : type;
}

std::string Entity::declaredContentType() const {
  return std::string(mime::properValue(fieldValue(kContentType).value_or("")));
}

std::optional<std::string> Entity::contentTypeParameter(const char* name) const {
  const auto value = fieldValue(kContentType);
  return value ? mime::contentTypeParameter(*value, name) : std::nullopt;
}

std::optional<std::string> Entity::declaredFileName() const {
  std::optional<std::string> name;
  if (const auto value = fieldValue(kDisposition)) {
    name = mime::dispositionParameter(*value, "filename");
  }
  if (!name || name->empty()) {
    if (auto other = contentTypeParameter("name")) name = std::move(other);
  }
  // What the MIME library does not find, another reader may.
  if (!name || name->empty()) {
    if (std::string found = firstFileName(*this); !found.empty()) name = std::move(found);
  }
  return name;
}

std::optional<std::string> Entity::fileNameText() const {
  auto name = declaredFileName();
  return name && !name->empty() ? name : std::nullopt;
}

std::string Entity::disposition() const {
  return lowered(mime::properValue(fieldValue(kDisposition).value_or("")));
}

std::string Entity::transferEncoding() const {
  const std::string value = fieldValue("content-transfer-encoding").value_or("");
  const std::string_view token = std::string_view(value).substr(0, value.find_first_of(" \t;(,"));
  return token.empty() ? "7bit" : lowered(token);
}

std::string Entity::path() const {
  std::vector<std::uint32_t> numbers;
  for (const Entity* entity = this; entity != nullptr; entity = entity->parent_) {
    numbers.push_back(entity->ordinal_);
  }
  std::string result;
  for (auto number = numbers.rbegin(); number != numbers.rend(); ++number) {
    if (!result.empty()) result += '.';
    result += std::to_string(*number);
  }
  return result;
}

std::string Entity::describe() const { return fileNameText().value_or(contentType()); }

std::string Entity::headerText() const {
  if (block_ == nullptr) return std::string(fields_);
  std::string text;
  for (std::size_t i = 0; i < block_->size(); ++i) {
    if (!text.empty() && text.back() != '\n') text += lineBreak().text();
    text += block_->at(i).bytes();
  }
  return text;
}

std::string Entity::decodedContent(std::size_t limit) const {
  std::string content;
  StringSink sink(content, limit);
  decodeTo(sink);
  return content;
}

std::size_t Entity::decodedSize() const {
  CountingSink sink;
  decodeTo(sink);
  return sink.count();
}

bool Entity::decodeTo(OvMsgSink& sink) const {
  if (kind_ == OvMsgEntityKind::Multipart || kind_ == OvMsgEntityKind::Message) return true;
  return decodeBody(body_, transferEncodingOf(transferEncoding()), sink);
}

}  // namespace host::message
