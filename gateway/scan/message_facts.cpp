#include "gateway/scan/message_facts.h"

#include <algorithm>
#include <utility>

#include "host/message/declared_names.h"
#include "host/message/entity.h"
#include "host/message/field_lookup.h"
#include "host/message/header_field.h"
#include "host/message/message.h"

namespace gateway::scan {
namespace {

using host::message::Entity;

bool isText(const std::string& type) { return type.starts_with("text/"); }

bool isAttachment(const Entity& entity, const Attachment& facts) {
  if (entity.kind() == OvMsgEntityKind::Multipart) return false;
  if (!facts.fileNames.empty() || !std::all_of(facts.types.begin(), facts.types.end(), isText)) {
    return true;
  }
  const std::vector<std::string> dispositions = host::message::declaredDispositions(entity);
  return std::find(dispositions.begin(), dispositions.end(), "attachment") != dispositions.end();
}

const std::string& firstOf(const std::vector<std::string>& texts) {
  static const std::string kNone;
  return texts.empty() ? kNone : texts.front();
}

}  // namespace

const std::string& Attachment::fileName() const { return firstOf(fileNames); }

const std::string& Attachment::type() const { return firstOf(types); }

std::size_t MessageFacts::size() const { return message_.renderedSize(); }

const std::vector<std::string>& MessageFacts::subjects() const {
  static const std::vector<std::string> kNone(1);
  const std::vector<std::string>& subjects = headers("subject");
  return subjects.empty() ? kNone : subjects;
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
    facts.fileNames = host::message::declaredFileNames(*entity);
    facts.types = host::message::declaredContentTypes(*entity);
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
