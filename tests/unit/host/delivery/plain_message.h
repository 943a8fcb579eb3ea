// A message for adapters: bytes, an id and an envelope.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/message/message.h"
#include "library/platform/ov_msg_mail_message.h"

namespace testing_host {

/// Renders its bytes in pieces of seven. Has no entities.
class PlainMessage final : public OvMsgMailMessage {
 public:
  explicit PlainMessage(std::string bytes = "Subject: test\r\n\r\nbody\r\n")
      : bytes_(std::move(bytes)) {}

  void setId(std::string id) { id_ = std::move(id); }
  /// Without a call there is no envelope. No sender means that none was ever set.
  void setEnvelope(std::optional<std::string> sender, std::vector<std::string> recipients);
  /// Rendering ends with an error of the message library behind so many bytes.
  void failRenderingAt(std::size_t bytes) { failAt_ = bytes; }
  /// Claims another size than it renders.
  void claimSize(std::size_t size) { claimedSize_ = size; }

  const std::string& bytes() const { return bytes_; }

  const char* id() const override { return id_.c_str(); }
  OvMsgEntity* firstEntity() override { return nullptr; }
  const OvMsgEntity* firstEntity() const override { return nullptr; }
  bool isSmimeSigned() const override { return false; }
  bool isPgpSigned() const override { return false; }
  OvMsgMailSessionInfo* sessionInfo() const override;
  int insertText(OvMsgInsertPlace place, const OvMsgResourceLocator* text, int flags,
                 const char* sourceCharset, const char* destinationCharset) override;
  int render(OvMsgSink& sink) const override;
  std::size_t renderedSize() const override { return claimedSize_.value_or(bytes_.size()); }

 private:
  std::string bytes_;
  std::string id_ = "0123456789abcdef";
  std::unique_ptr<host::message::Message> envelope_;  ///< holds it, if there is one
  std::optional<std::size_t> failAt_;
  std::optional<std::size_t> claimedSize_;
};

}  // namespace testing_host
