#include "tests/fakes/entity.h"

#include <strings.h>

#include <algorithm>
#include <utility>

#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_functions.h"
#include "tests/fakes/fault_plan.h"

namespace fakes {

Entity::Entity(std::string label) : label_(std::move(label)), top_(this) {}

Entity* Entity::addPart(std::string label, OvMsgEntityKind kind) {
  parts_.push_back(std::make_unique<Entity>(std::move(label)));
  Entity* const part = parts_.back().get();
  part->top_ = top_;
  part->parent_ = this;
  part->facts_.kind = kind;
  return part;
}

Header* Entity::addField(std::string name, std::string value) {
  headers_.push_back(std::make_unique<Header>(std::move(name), std::move(value)));
  return headers_.back().get();
}

std::vector<std::string> Entity::fields() const {
  std::vector<std::string> fields;
  for (const auto& header : headers_) {
    fields.push_back(header->nameText() + ":" + header->valueText());
  }
  return fields;
}

Header* Entity::findField(const char* name) const {
  for (const auto& header : headers_) {
    if (header != nullptr && strcasecmp(header->nameText().c_str(), name) == 0) {
      return header.get();
    }
  }
  return nullptr;
}

bool Entity::holds(const OvMsgEntity* entity) const {
  return entity == this || std::any_of(parts_.begin(), parts_.end(),
                                       [&](const auto& part) { return part->holds(entity); });
}

void Entity::detach() {
  auto& siblings = parent_->parts_;
  const auto place = std::find_if(siblings.begin(), siblings.end(),
                                  [this](const auto& part) { return part.get() == this; });
  top_->removed_.push_back(std::move(*place));
  siblings.erase(place);
  parent_ = nullptr;
}

OvMsgEntityKind Entity::kind() const {
  platformCallFails();  // as most of these: has no failure result, may only throw
  return facts_.kind;
}

OvMsgEntity* Entity::nextEntity() {
  platformCallFails();
  if (!parts_.empty()) {
    return parts_.front().get();
  }
  for (const Entity* entity = this; entity->parent_ != nullptr; entity = entity->parent_) {
    const auto& siblings = entity->parent_->parts_;
    auto place = std::find_if(siblings.begin(), siblings.end(),
                              [entity](const auto& part) { return part.get() == entity; });
    if (++place != siblings.end()) {
      return place->get();
    }
  }
  return nullptr;
}

OvMsgEntity* Entity::parentEntity() { return platformCallFails() ? nullptr : parent_; }

bool Entity::isSubordinate() const {
  platformCallFails();
  return parent_ != nullptr;
}

int Entity::headerCount() const {
  platformCallFails();
  return static_cast<int>(headers_.size());
}

OvMsgHeader* Entity::headerAt(int index) {
  platformCallFails();
  return index < 0 || index >= static_cast<int>(headers_.size()) ? nullptr : headers_[index].get();
}

OvMsgHeader* Entity::header(const char* name) {
  return platformCallFails() ? nullptr : findField(name);
}

bool Entity::addHeader(int position, const char* name, const char* value, const char* charset) {
  if (platformCallFails() || !facts_.addsHeaders) {
    return false;
  }
  const auto place = position < 0 || position > static_cast<int>(headers_.size())
                         ? headers_.end()
                         : headers_.begin() + position;
  const auto added = headers_.insert(place, std::make_unique<Header>(name, value));
  if (charset != nullptr) {
    (*added)->facts().charset = charset;
  }
  return true;
}

bool Entity::removeHeader(const char* name) {
  if (platformCallFails()) {
    return false;
  }
  return std::erase_if(headers_, [name](const auto& header) {
           return strcasecmp(header->nameText().c_str(), name) == 0;
         }) != 0;
}

bool Entity::removeHeaderAt(int index) {
  if (platformCallFails() || index < 0 || index >= static_cast<int>(headers_.size())) {
    return false;
  }
  headers_.erase(headers_.begin() + index);
  return true;
}

OvMsgFileName* Entity::fileName() {
  return platformCallFails() || !facts_.file ? nullptr : &*facts_.file;
}

int Entity::setContent(const OvMsgResourceLocator* content, const char* contentType,
                       const char* charset, const char* transferEncoding) {
  if (platformCallFails()) {
    return OVMSGERR::MalformedText;
  }
  if (facts_.contentAnswer == OVMSGERR::Ok) {
    facts_.content = std::string(content->data(), content->size()) + "|" + contentType + "|" +
                     charset + "|" + transferEncoding;
  }
  return facts_.contentAnswer;
}

// The declarations stay as they are, so that a test sees what the library itself wrote.
int Entity::insertTextBody(const OvMsgResourceLocator* text, const char* contentType,
                           const char* charset, const char* transferEncoding) {
  if (platformCallFails()) {
    return OVMSGERR::MalformedText;
  }
  const Unswept unswept;
  calls_.push_back("text '" + std::string(text->data(), text->size()) + "' " + contentType + " " +
                   (charset != nullptr ? charset : "(null)") + " " + transferEncoding);
  return facts_.textAnswer;
}

int Entity::insertChild(const OvMsgEntity* child, int position) {
  if (platformCallFails()) {
    return OVMSGERR::ForeignEntity;
  }
  const Unswept unswept;
  calls_.push_back("child " + static_cast<const Entity*>(child)->label() + " " +
                   std::to_string(position));
  return facts_.childAnswer;
}

// The entity becomes a multipart in its place.
int Entity::attachMessage(const OvMsgMailMessage* message, int position) {
  if (platformCallFails() || message == nullptr) {
    return OVMSGERR::InvalidArgument;
  }
  const Unswept unswept;
  calls_.push_back("attach " + std::to_string(position));
  if (facts_.attachAnswer == OVMSGERR::Ok) {
    facts_.attached = message;
    if (Header* const type = findField("Content-Type")) {
      type->assign("multipart/mixed");
    }
  }
  return facts_.attachAnswer;
}

}  // namespace fakes
