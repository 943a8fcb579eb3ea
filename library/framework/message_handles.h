// What is created from the message library, released with its scope.
#pragma once

#include <memory>

#include "library/platform/ov_msg_functions.h"

namespace library {

// Releasing cannot fail: what the platform throws then is logged.
struct MessageDeleter {
  void operator()(OvMsgMailMessage* msg) const noexcept;
};
struct SessionDeleter {
  void operator()(OvMsgMailSessionInfo* session) const noexcept;
};
struct EncodedTextDeleter {
  void operator()(char* text) const noexcept;
};

/// A message of our own making.
using OwnMessage = std::unique_ptr<OvMsgMailMessage, MessageDeleter>;
/// A handle to a message's envelope; to be released before the message.
using Session = std::unique_ptr<OvMsgMailSessionInfo, SessionDeleter>;
/// A text from `msgu::genRfc2047`.
using EncodedText = std::unique_ptr<char, EncodedTextDeleter>;

}  // namespace library
