#include "host/message/message.h"

#include <utility>

#include "host/message/entity_arena.h"
#include "host/message/guard.h"
#include "host/message/header_block.h"
#include "host/message/message_id.h"
#include "host/message/render.h"
#include "host/message/scanner.h"
#include "host/message/session_info.h"
#include "host/message/signatures.h"
#include "host/message/sinks.h"
#include "host/message/text_insertion.h"
#include "library/platform/ov_msg_functions.h"

namespace host::message {

Message::Message(std::shared_ptr<const Buffer> source)
    : source_(std::move(source)), arena_(std::make_unique<EntityArena>()) {}

Message::~Message() = default;

std::unique_ptr<Message> Message::parse(std::shared_ptr<const Buffer> bytes, const Limits& limits) {
  if (bytes == nullptr) bytes = Buffer::copyOf({});
  std::unique_ptr<Message> message(new Message(std::move(bytes)));
  message->id_ = newMessageId();
  message->limits_ = limits;
  message->readSource();
  return message;
}

void Message::readSource() {
  lineBreak_ = lineBreakOf(source_->view(), LineBreak{});
  Scanner scanner(*this, *arena_, limits_, defects_);
  root_ = scanner.scan(source_->view());
}

std::unique_ptr<Message> Message::create() {
  std::unique_ptr<Message> message(new Message(Buffer::copyOf({})));
  message->id_ = newMessageId();
  message->composed_ = true;
  message->envelope_ = Envelope{};
  message->receivedEnvelope_ = Envelope{};
  message->root_ = &message->newEntity();
  message->root_->needsBlankLine_ = true;
  message->root_->detached_ = false;
  return message;
}

Entity& Message::newEntity() {
  Entity& entity = arena_->make(*this);
  entity.touched_ = true;
  entity.contentChanged_ = true;
  entity.detached_ = true;
  return entity;
}

std::string_view Message::keep(std::string bytes) {
  buffers_.push_back(Buffer::adopt(std::move(bytes)));
  return buffers_.back()->view();
}

void Message::keepBuffersOf(const Message& other) {
  if (&other == this) return;
  buffers_.insert(buffers_.end(), other.buffers_.begin(), other.buffers_.end());
  buffers_.push_back(other.source_);
}

void Message::note(Change::Kind kind, std::string what, const Entity& entity) {
  changes_.push_back({kind, std::move(what), entity.path()});
}

bool Message::isSmimeSigned() const {
  return guarded(false, [&] { return hasSmimeSignature(*this); });
}

bool Message::isPgpSigned() const {
  return guarded(false, [&] { return hasPgpSignature(*this); });
}

OvMsgMailSessionInfo* Message::sessionInfo() const {
  return guarded<OvMsgMailSessionInfo*>(nullptr, [&]() -> OvMsgMailSessionInfo* {
    if (!envelope_) return nullptr;
    // The envelope is no part of what a const message promises to keep: see OvMsgMailMessage.
    return new SessionInfo(const_cast<Message&>(*this));
  });
}

int Message::insertText(OvMsgInsertPlace place, const OvMsgResourceLocator* text, int /*flags*/,
                        const char* sourceCharset, const char* destinationCharset) {
  return guardedCode([&]() -> int {
    if (text == nullptr || sourceCharset == nullptr) return OVMSGERR::InvalidArgument;
    const std::string_view bytes(text->data(), text->size());
    const std::string_view destination = destinationCharset == nullptr ? "" : destinationCharset;
    return message::insertText(*this, {place, bytes, sourceCharset, destination});
  });
}

int Message::render(OvMsgSink& sink) const {
  return guardedCode([&]() -> int {
    if (root_ != nullptr) {
      return Renderer(sink).write(*root_, true) ? OVMSGERR::Ok : OVMSGERR::WriteFailed;
    }
    const std::string_view bytes = source_->view();
    if (bytes.empty() || sink.write(bytes.data(), bytes.size())) return OVMSGERR::Ok;
    return OVMSGERR::WriteFailed;
  });
}

std::size_t Message::renderedSize() const {
  CountingSink sink;
  render(sink);
  return sink.count();
}

std::string Message::toString() const {
  std::string text;
  text.reserve(renderedSize());
  StringSink sink(text);
  render(sink);
  return text;
}

Message& Message::received() { return const_cast<Message&>(std::as_const(*this).received()); }

const Message& Message::received() const {
  if (received_ == nullptr) {
    std::unique_ptr<Message> original(new Message(source_));
    original->id_ = id_;
    original->limits_ = limits_;
    original->envelope_ = original->receivedEnvelope_ = receivedEnvelope_;
    original->readSource();
    received_ = std::move(original);
  }
  return *received_;
}

const Envelope& Message::envelope() const {
  static const Envelope kNone;
  return envelope_ ? *envelope_ : kNone;
}

void Message::setEnvelope(Envelope envelope) {
  if (!receivedEnvelope_) receivedEnvelope_ = envelope;
  envelope_ = std::move(envelope);
}

// Only where something was touched can anything be different.
bool Message::changed() const {
  if (composed_) return true;
  const Entity* entity = root_;
  while (entity != nullptr) {
    if (entity->touched_) {
      if (entity->contentChanged_) return true;
      if (entity->block_ != nullptr && entity->block_->isModified()) return true;
      entity = entity->next();
      continue;
    }
    while (entity != nullptr && entity->nextSibling_ == nullptr) entity = entity->parent_;
    if (entity != nullptr) entity = entity->nextSibling_;
  }
  return false;
}

bool Message::contains(const OvMsgEntity* entity) const {
  return entity != nullptr && arena_->owns(entity) &&
         !static_cast<const Entity*>(entity)->detached_;
}

std::size_t Message::entityCount() const {
  std::size_t count = 0;
  for (const Entity* entity = root_; entity != nullptr; entity = entity->next()) ++count;
  return count;
}

}  // namespace host::message
