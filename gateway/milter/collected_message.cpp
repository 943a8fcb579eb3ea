#include "gateway/milter/collected_message.h"

#include <utility>

#include "host/message/ascii.h"

namespace gateway::milter {
namespace {

std::string withoutBrackets(std::string_view address) {
  if (address.size() >= 2 && address.front() == '<' && address.back() == '>') {
    address = address.substr(1, address.size() - 2);
  }
  return std::string(address);
}

/// \p value with CR LF at its folds. \return false when a line break in it is no fold: behind one,
///   another field would begin for everybody who reads the message.
bool withFolds(std::string_view value, std::string& text) {
  for (std::size_t i = 0; i < value.size(); ++i) {
    const bool isCrLf = value[i] == '\r' && i + 1 < value.size() && value[i + 1] == '\n';
    if (isCrLf) ++i;
    if (value[i] != '\n') {
      text += value[i];
      continue;
    }
    if (i + 1 == value.size() || !host::message::isBlank(value[i + 1])) return false;
    text += "\r\n";
  }
  return true;
}

}  // namespace

void CollectedMessage::setSender(std::string_view address, std::vector<std::string> arguments) {
  sender_ = {withoutBrackets(address), std::move(arguments)};
}

void CollectedMessage::addRecipient(std::string_view address, std::vector<std::string> arguments) {
  if (recipients_.size() == limits_.recipients) {
    exceed("recipients", limits_.recipients);
    return;
  }
  recipients_.push_back({withoutBrackets(address), std::move(arguments)});
}

void CollectedMessage::addHeader(std::string_view name, std::string_view value) {
  if (isBroken()) return;
  if (!host::message::isFieldName(name)) {
    fault_ = "a header field without a proper name";
    return;
  }
  if (headerFields_ == limits_.headerFields) {
    exceed("header fields", limits_.headerFields);
    return;
  }
  std::string field(name);
  field += ':';
  if (!withFolds(value, field)) {
    fault_ = "a line break in the header field " + std::string(name) + " that is no fold";
    return;
  }
  field += "\r\n";
  if (size_ + field.size() > limits_.headerBytes) {
    exceed("bytes of header", limits_.headerBytes);
    return;
  }
  ++headerFields_;
  append(field);
}

void CollectedMessage::endHeader() {
  if (std::exchange(headerEnded_, true) || isBroken()) return;
  append("\r\n");
}

void CollectedMessage::addBody(std::string_view piece) {
  endHeader();
  if (!isBroken()) append(piece);
}

void CollectedMessage::append(std::string_view bytes) {
  if (bytes.size() > limits_.bytes - size_) {
    exceed("bytes", limits_.bytes);
    return;
  }
  size_ += bytes.size();
  if (!bytes_.append(bytes)) fault_ = bytes_.fault();
}

void CollectedMessage::exceed(const char* what, std::size_t limit) {
  if (excess_.empty()) excess_ = "more than " + std::to_string(limit) + " " + what;
}

std::shared_ptr<const host::message::Buffer> CollectedMessage::takeBytes() {
  endHeader();
  if (isBroken()) return nullptr;
  std::shared_ptr<const host::message::Buffer> bytes = bytes_.take();
  if (bytes == nullptr) fault_ = bytes_.fault();
  return bytes;
}

host::message::Envelope CollectedMessage::envelope() const {
  host::message::Envelope envelope;
  envelope.sender = sender_.text;
  for (const EnvelopeAddress& recipient : recipients_) {
    envelope.recipients.push_back(recipient.text);
  }
  return envelope;
}

}  // namespace gateway::milter
