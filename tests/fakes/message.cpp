#include "tests/fakes/message.h"

#include <strings.h>

#include <algorithm>
#include <utility>

#include "library/platform/msgu.h"
#include "library/platform/ov_msg_error.h"
#include "tests/fakes/fault_plan.h"

namespace fakes {

Header::Header(std::string name, std::string value)
    : name_(std::move(name)), value_(std::move(value)), raw_(name_ + ": " + value_ + "\r\n") {}

const char* Header::name() const { return name_.c_str(); }
const char* Header::value() const { return value_.c_str(); }
const char* Header::decodedValue(int& hadEncodedWords) const {
  hadEncodedWords = 0;
  return value_.c_str();
}
const char* Header::rawValue() const { return raw_.c_str(); }
const char* Header::charset() const { return nullptr; }
const char* Header::address() const { return value_.c_str(); }
int Header::setValue(const char* value, const char* /*charset*/) {
  value_ = value;
  raw_ = name_ + ": " + value_ + "\r\n";
  return OVMSGERR::Ok;
}
int Header::setRawValue(const char* value, const char* charset) { return setValue(value, charset); }
int Header::setParameter(const char* /*name*/, const char* /*value*/) {
  return OVMSGERR::NotSupported;
}

OvMsgEntityKind Entity::kind() const { return OvMsgEntityKind::Leaf; }
OvMsgEntity* Entity::nextEntity() { return nullptr; }
OvMsgEntity* Entity::parentEntity() { return nullptr; }
bool Entity::isSubordinate() const { return false; }
int Entity::headerCount() const { return static_cast<int>(headers_.size()); }
OvMsgHeader* Entity::headerAt(int index) {
  return index < 0 || index >= headerCount() ? nullptr : headers_[index].get();
}
OvMsgHeader* Entity::header(const char* name) {
  for (const auto& header : headers_) {
    if (strcasecmp(header->name(), name) == 0) {
      return header.get();
    }
  }
  return nullptr;
}
bool Entity::addHeader(int position, const char* name, const char* value, const char* /*charset*/) {
  const auto place =
      position < 0 || position > headerCount() ? headers_.end() : headers_.begin() + position;
  headers_.insert(place, std::make_unique<Header>(name, value));
  return true;
}
bool Entity::removeHeader(const char* name) {
  if (platformCallFails()) {
    return false;
  }
  return std::erase_if(headers_, [name](const auto& header) {
           return strcasecmp(header->name(), name) == 0;
         }) != 0;
}
bool Entity::removeHeaderAt(int index) {
  if (index < 0 || index >= headerCount()) {
    return false;
  }
  headers_.erase(headers_.begin() + index);
  return true;
}
OvMsgFileName* Entity::fileName() { return nullptr; }
int Entity::setContent(const OvMsgResourceLocator* /*content*/, const char* /*contentType*/,
                       const char* /*charset*/, const char* /*transferEncoding*/) {
  return OVMSGERR::NotSupported;
}
int Entity::insertTextBody(const OvMsgResourceLocator* /*text*/, const char* /*contentType*/,
                           const char* /*charset*/, const char* /*transferEncoding*/) {
  return OVMSGERR::NotSupported;
}
int Entity::insertChild(const OvMsgEntity* /*child*/, int /*position*/) {
  return OVMSGERR::NotSupported;
}
int Entity::attachMessage(const OvMsgMailMessage* /*message*/, int /*position*/) {
  return OVMSGERR::NotSupported;
}

Message::Message(bool withRoot) : root_(withRoot ? std::make_unique<Entity>() : nullptr) {}

std::vector<std::string> Message::fields() {
  std::vector<std::string> fields;
  for (int index = 0; root_ != nullptr && index < root_->headerCount(); ++index) {
    const OvMsgHeader* header = root_->headerAt(index);
    fields.push_back(std::string(header->name()) + ":" + header->value());
  }
  return fields;
}

const char* Message::id() const {
  platformCallFails();  // has no failure result: may only throw
  return id_.c_str();
}
OvMsgEntity* Message::firstEntity() { return root_.get(); }
const OvMsgEntity* Message::firstEntity() const { return root_.get(); }
bool Message::isSmimeSigned() const { return false; }
bool Message::isPgpSigned() const { return false; }
OvMsgMailSessionInfo* Message::sessionInfo() const { return nullptr; }
int Message::insertText(OvMsgInsertPlace /*place*/, const OvMsgResourceLocator* /*text*/,
                        int /*flags*/, const char* /*sourceCharset*/,
                        const char* /*destinationCharset*/) {
  return OVMSGERR::NotSupported;
}
int Message::render(OvMsgSink& sink) const {
  for (int index = 0; root_ != nullptr && index < root_->headerCount(); ++index) {
    const std::string field = root_->headerAt(index)->rawValue();
    if (!sink.write(field.data(), field.size())) {
      return OVMSGERR::WriteFailed;
    }
  }
  return OVMSGERR::Ok;
}
std::size_t Message::renderedSize() const {
  std::size_t size = 0;
  for (int index = 0; root_ != nullptr && index < root_->headerCount(); ++index) {
    size += std::string(root_->headerAt(index)->rawValue()).size();
  }
  return size;
}

}  // namespace fakes

namespace msgu {

OvMsgEntity* getRootEntity(OvMsgMailMessage* msg) {
  return fakes::platformCallFails() || msg == nullptr ? nullptr : msg->firstEntity();
}

bool setHeader(OvMsgEntity* entity, const char* name, const char* value, const char* charset) {
  if (fakes::platformCallFails() || entity == nullptr) {
    return false;
  }
  if (OvMsgHeader* header = entity->header(name)) {
    return header->setValue(value, charset) == OVMSGERR::Ok;
  }
  return entity->addHeader(-1, name, value, charset);
}

}  // namespace msgu
