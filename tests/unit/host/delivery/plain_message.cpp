#include "tests/unit/host/delivery/plain_message.h"

#include <algorithm>
#include <new>
#include <utility>

#include "library/platform/ov_msg_error.h"

namespace testing_host {

namespace {

constexpr std::size_t kPieceBytes = 7;

}  // namespace

void PlainMessage::setEnvelope(std::optional<std::string> sender,
                               std::vector<std::string> recipients) {
  if (envelope_ == nullptr) envelope_ = host::message::Message::create();
  envelope_->setEnvelope({std::move(sender), std::move(recipients), {}});
}

OvMsgMailSessionInfo* PlainMessage::sessionInfo() const {
  if (envelope_ == nullptr) return nullptr;
  OvMsgMailSessionInfo* session = envelope_->sessionInfo();
  // Null would say that there is no envelope.
  if (session == nullptr) throw std::bad_alloc();
  return session;
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
