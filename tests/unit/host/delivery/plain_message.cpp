#include "tests/unit/host/delivery/plain_message.h"

#include <algorithm>
#include <utility>

#include "library/platform/msgu.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_functions.h"
#include "library/platform/ov_msg_session_info.h"

namespace testing_host {

namespace {

constexpr std::size_t kPieceBytes = 7;

class Address final : public OvMsgAddress {
 public:
  explicit Address(std::string text) : text_(std::move(text)) {}
  const char* address() const override { return text_.c_str(); }
  const char* displayName() const override { return ""; }

 private:
  std::string text_;
};

class Session final : public OvMsgMailSessionInfo {
 public:
  Session(std::optional<Address> sender, std::vector<std::string> recipients)
      : sender_(std::move(sender)), recipients_(std::move(recipients)) {}

  int setSender(const char*) override { return OVMSGERR::NotSupported; }
  const OvMsgAddress* sender() const override { return sender_ ? &*sender_ : nullptr; }
  int recipientCount() const override { return static_cast<int>(recipients_.size()); }
  const char* recipientAt(int index) const override {
    return index >= 0 && index < recipientCount()
               ? recipients_[static_cast<std::size_t>(index)].c_str()
               : nullptr;
  }
  int insertRecipient(int, const char*) override { return OVMSGERR::NotSupported; }

 private:
  std::optional<Address> sender_;
  std::vector<std::string> recipients_;
};

}  // namespace

void PlainMessage::setEnvelope(std::optional<std::string> sender,
                               std::vector<std::string> recipients) {
  hasEnvelope_ = true;
  sender_ = std::move(sender);
  recipients_ = std::move(recipients);
}

OvMsgMailSessionInfo* PlainMessage::sessionInfo() const {
  if (!hasEnvelope_) return nullptr;
  std::optional<Address> sender;
  if (sender_) sender.emplace(*sender_);
  return new Session(std::move(sender), recipients_);
}

int PlainMessage::insertText(OvMsgInsertPlace, const OvMsgResourceLocator*, int, const char*,
                             const char*) {
  return OVMSGERR::NotSupported;
}

int PlainMessage::render(OvMsgSink& sink) const {
  for (std::size_t at = 0; at < bytes_.size(); at += kPieceBytes) {
    if (failAt_ && at >= *failAt_) return OVMSGERR::OutOfMemory;
    const std::size_t size = std::min(kPieceBytes, bytes_.size() - at);
    if (!sink.write(bytes_.data() + at, size)) return OVMSGERR::WriteFailed;
  }
  return OVMSGERR::Ok;
}

}  // namespace testing_host

// The text behind "Subject: ", if the message begins with it.
bool msgu::getSubject(OvMsgMailMessage* msg, const char*, const char*, std::string& subject) {
  constexpr std::string_view kField = "Subject: ";
  const std::string& bytes = static_cast<testing_host::PlainMessage*>(msg)->bytes();
  subject.clear();
  if (!bytes.starts_with(kField)) return false;
  subject = bytes.substr(kField.size(), bytes.find('\r') - kField.size());
  return true;
}

void OvMsg_DeleteSessionInfo(OvMsgMailSessionInfo* session) {
  delete static_cast<testing_host::Session*>(session);
}
