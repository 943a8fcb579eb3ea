#include "host/message/address.h"
#include "host/message/ascii.h"
#include "host/message/charset.h"
#include "host/message/facts.h"
#include "host/message/guard.h"
#include "host/message/header_block.h"
#include "host/message/message.h"
#include "host/message/walk.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_header.h"
#include "library/platform/ov_msg_session_info.h"

namespace msgu {

using host::message::Entity;
using host::message::guarded;
using host::message::Message;

OvMsgEntity* getRootEntity(OvMsgMailMessage* msg) {
  return msg == nullptr ? nullptr : msg->firstEntity();
}

bool getHeader(OvMsgEntity* entity, const char* name, std::string& value) {
  return guarded(false, [&] {
    value.clear();
    OvMsgHeader* header = entity == nullptr ? nullptr : entity->header(name);
    if (header == nullptr) return false;
    const auto* field = dynamic_cast<const host::message::HeaderField*>(header);
    value = field != nullptr ? field->unfoldedValue() : header->value();
    return true;
  });
}

bool setHeader(OvMsgEntity* entity, const char* name, const char* value, const char* charset) {
  return guarded(false, [&] {
    if (entity == nullptr || name == nullptr || value == nullptr) return false;
    if (!host::message::isFieldName(name)) return false;
    if (OvMsgHeader* header = entity->header(name)) {
      return header->setValue(value, charset) == OVMSGERR::Ok;
    }
    return entity->addHeader(-1, name, value, charset);
  });
}

bool getHeaders(OvMsgMailMessage* msg, std::string& text) {
  return guarded(false, [&] {
    text.clear();
    const auto* message = dynamic_cast<const Message*>(msg);
    if (message == nullptr || message->firstEntity() == nullptr) return false;
    text = message->firstEntity()->headerText();
    return true;
  });
}

bool getRcpt(OvMsgMailMessage* msg, std::string& text, std::list<std::string>& list) {
  return guarded(false, [&] {
    text.clear();
    list.clear();
    const auto* message = dynamic_cast<const Message*>(msg);
    if (message == nullptr || !message->hasEnvelope()) return false;
    for (const std::string& recipient : message->envelope().recipients) {
      if (!text.empty()) text += ';';
      text += recipient;
      list.push_back(recipient);
    }
    return true;
  });
}

bool setRcpt(OvMsgMailMessage* msg, const char* text, bool append) {
  return guarded(false, [&] {
    auto* message = dynamic_cast<Message*>(msg);
    if (message == nullptr || text == nullptr) return false;
    host::message::Envelope envelope = message->envelope();
    if (!append) envelope.recipients.clear();
    for (const std::string_view part : host::message::dividedAddresses(text)) {
      if (host::message::trimmed(part).empty()) continue;
      auto mailbox = host::message::splitMailbox(part);
      if (!host::message::isMailAddress(mailbox.address)) return false;
      envelope.recipients.push_back(std::move(mailbox.address));
    }
    message->setEnvelope(std::move(envelope));
    return true;
  });
}

const char* getCharset(OvMsgMailMessage* msg) {
  return guarded<const char*>(nullptr, [&]() -> const char* {
    auto* message = dynamic_cast<Message*>(msg);
    if (message == nullptr) return nullptr;
    for (const Entity* entity = message->firstEntity(); entity != nullptr;
         entity = host::message::nextOwnEntity(*entity)) {
      if (entity->kind() != OvMsgEntityKind::Leaf || !entity->contentType().starts_with("text/")) {
        continue;
      }
      const auto charset = entity->contentTypeParameter("charset");
      if (!charset || !host::message::isForHeaders(host::message::trimmed(*charset))) continue;
      std::string& answer = message->lastAnswers().charset;
      answer = host::message::lowered(host::message::trimmed(*charset));
      return answer.c_str();
    }
    return nullptr;
  });
}

bool getSubject(OvMsgMailMessage* msg, const char* sourceCharset, const char* mailCharset,
                std::string& subject) {
  return guarded(false, [&] {
    subject.clear();
    const auto* message = dynamic_cast<const Message*>(msg);
    if (message == nullptr) return false;
    const auto text = host::message::decodedSubject(*message, {mailCharset, sourceCharset});
    if (!text) return false;
    subject = *text;
    return true;
  });
}

const char* getXMailId(OvMsgMailMessage* msg) {
  return guarded<const char*>(nullptr, [&]() -> const char* {
    auto* message = dynamic_cast<Message*>(msg);
    if (message == nullptr || message->firstEntity() == nullptr) return nullptr;
    const auto* field = std::as_const(*message).firstEntity()->field("X-Mail-ID");
    if (field == nullptr) return nullptr;
    message->lastAnswers().mailId = field->unfoldedValue();
    return message->lastAnswers().mailId.c_str();
  });
}

}  // namespace msgu
