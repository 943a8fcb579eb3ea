// How sending a message ended.
#pragma once

#include <string>

#include "host/delivery/adapter_error.h"
#include "library/platform/api.h"

namespace host::delivery {

/// How far a transaction came.
enum class SmtpStage {
  None,  ///< nothing was tried
  Connect,
  Greeting,
  Hello,
  Tls,
  Login,
  Sender,
  Recipient,
  Data,
  Body,
  End,  ///< behind the final dot
};

struct KAVI_API SmtpOutcome {
  AdapterError error = AdapterError::None;
  SmtpStage stage = SmtpStage::None;  ///< where it failed
  int replyCode = 0;                  ///< of the server's last reply; 0 when there was none
  std::string reply;                  ///< that reply, printable, at most a thousand bytes
  std::string address;                ///< the recipient or other address that was refused
  std::string server;                 ///< "host:port"

  bool isSent() const { return error == AdapterError::None; }
  /// Whether trying again is of no use: the message or a recipient is refused for good. A 5xx
  /// before the sender is named concerns the session and not this message.
  bool isFinal() const;
  /// Whether the server may have taken the message although no reply said so.
  bool isUncertain() const;
  /// What happened, on one printable line: server, stage, address, reply.
  std::string text() const;
};

}  // namespace host::delivery
