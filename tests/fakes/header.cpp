#include "tests/fakes/header.h"

#include <utility>

#include "library/platform/ov_msg_error.h"
#include "tests/fakes/fault_plan.h"

namespace fakes {

Header::Header(std::string name, std::string value)
    : name_(std::move(name)), value_(std::move(value)) {
  facts_.raw = name_ + ": " + value_ + "\r\n";
}

void Header::assign(const char* value) {
  value_ = value;
  facts_.raw = name_ + ": " + value_ + "\r\n";
}

const char* Header::handOut(const std::string& text) const {
  const Unswept unswept;
  handedOut_ = std::make_unique<std::string>(text);
  return handedOut_->c_str();
}

const char* Header::name() const {
  platformCallFails();  // as the next two: has no failure result, may only throw
  return facts_.hasName ? handOut(name_) : nullptr;
}
const char* Header::value() const {
  platformCallFails();
  return facts_.hasValue ? handOut(value_) : nullptr;
}
const char* Header::charset() const {
  platformCallFails();
  return facts_.charset ? handOut(*facts_.charset) : nullptr;
}
const char* Header::decodedValue(int& hadEncodedWords) const {
  if (platformCallFails()) {
    return nullptr;
  }
  hadEncodedWords = facts_.hadEncodedWords ? 1 : 0;
  return handOut(facts_.decoded.value_or(value_));
}
const char* Header::rawValue() const {
  return platformCallFails() || !facts_.hasRawValue ? nullptr : handOut(facts_.raw);
}
const char* Header::address() const {
  return platformCallFails() || !facts_.hasValue ? nullptr : handOut(value_);
}

bool Header::accepts(const char* value, const char* charset) {
  if (platformCallFails()) {
    return false;
  }
  const Unswept unswept;
  facts_.writes.push_back(std::string(value) + " [" + (charset != nullptr ? charset : "(null)") +
                          "]");
  if (facts_.refusals > 0) {
    --facts_.refusals;
    return false;
  }
  return true;
}

int Header::setValue(const char* value, const char* charset) {
  if (!accepts(value, charset)) {
    return OVMSGERR::UnencodableText;
  }
  assign(value);
  return OVMSGERR::Ok;
}

int Header::setRawValue(const char* value, const char* charset) {
  if (!accepts(value, charset)) {
    return OVMSGERR::InvalidArgument;
  }
  value_ = value;
  facts_.raw = name_ + ":" + value + "\r\n";
  return OVMSGERR::Ok;
}

int Header::setParameter(const char* name, const char* value) {
  if (platformCallFails()) {
    return OVMSGERR::InvalidArgument;
  }
  const Unswept unswept;
  facts_.parameters.push_back(std::string(name) + "=" + value);
  return facts_.parameterAnswer;
}

}  // namespace fakes
