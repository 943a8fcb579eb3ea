#include "gateway/scan/message_facts.h"

#include "host/message/entity.h"
#include "host/message/field_lookup.h"
#include "host/message/header_field.h"
#include "host/message/message.h"

namespace gateway::scan {
namespace {

using host::message::Entity;

bool isAttachment(const Entity& entity, const Attachment& facts) {
  if (entity.kind() == OvMsgEntityKind::Multipart) return false;
  return !facts.fileName.empty() || facts.type.compare(0, 5, "text/") != 0 ||
         entity.disposition() == "attachment";
}

}  // namespace

std::size_t MessageFacts::size() const { return message_.renderedSize(); }

const std::string& MessageFacts::subject() const {
  static const std::string kNone;
  const std::vector<std::string>& subjects = headers("subject");
  return subjects.empty() ? kNone : subjects.front();
}

const std::vector<std::string>& MessageFacts::headers(const std::string& name) const {
  const auto [entry, isNew] = headers_.try_emplace(name);
  const Entity* root = message_.firstEntity();
  if (isNew && root != nullptr) {
    for (const host::message::HeaderField* field : host::message::fieldsNamed(*root, name)) {
      entry->second.push_back(field->decodedUtf8());
    }
  }
  return entry->second;
}

const std::string& MessageFacts::sender() const {
  static const std::string kNone;
  const auto& sender = message_.envelope().sender;
  return sender ? *sender : kNone;
}

const std::vector<std::string>& MessageFacts::recipients() const {
  return message_.envelope().recipients;
}

const std::vector<Attachment>& MessageFacts::attachments() const {
  if (attachments_) return *attachments_;
  std::vector<Attachment>& found = attachments_.emplace();
  std::size_t number = 0;
  for (const Entity* entity = message_.firstEntity(); entity != nullptr; entity = entity->next()) {
    Attachment facts;
    facts.entity = entity;
    facts.number = ++number;
    facts.fileName = entity->fileNameText().value_or(std::string());
    facts.type = entity->contentType();
    if (isAttachment(*entity, facts)) found.push_back(std::move(facts));
  }
  return found;
}

std::size_t MessageFacts::attachmentSize(std::size_t index) const {
  const auto [entry, isNew] = attachmentSizes_.try_emplace(index);
  if (isNew) entry->second = attachments().at(index).entity->decodedSize();
  return entry->second;
}

}  // namespace gateway::scan
