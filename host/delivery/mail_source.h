// Where the bytes of a message to be sent come from.
#pragma once

#include <string_view>
#include <utility>
#include <vector>

#include "library/platform/ov_msg_mail_message.h"

namespace host::delivery {

/// Something that can be written out any number of times, always the same.
class MailSource {
 public:
  virtual ~MailSource() = default;

  /// \return false when it could not be written, or \p sink refused it.
  virtual bool writeTo(OvMsgSink& sink) const = 0;
};

/// A message as it stands.
class MessageSource final : public MailSource {
 public:
  explicit MessageSource(const OvMsgMailMessage& msg) : msg_(msg) {}
  bool writeTo(OvMsgSink& sink) const override { return msg_.render(sink) == 0; }

 private:
  const OvMsgMailMessage& msg_;
};

/// Bytes that lie elsewhere, in pieces.
class SliceSource final : public MailSource {
 public:
  explicit SliceSource(std::vector<std::string_view> slices) : slices_(std::move(slices)) {}
  bool writeTo(OvMsgSink& sink) const override {
    for (const std::string_view slice : slices_) {
      if (!slice.empty() && !sink.write(slice.data(), slice.size())) return false;
    }
    return true;
  }

 private:
  std::vector<std::string_view> slices_;
};

}  // namespace host::delivery
