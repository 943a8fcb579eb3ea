// Sends messages over SMTP.
#pragma once

#include <memory>
#include <string>

#include "host/delivery/envelope.h"
#include "host/delivery/mail_source.h"
#include "host/delivery/smtp_destination.h"
#include "host/delivery/smtp_outcome.h"
#include "library/platform/api.h"

namespace host::delivery {

/// What is sent in one transaction. Borrows its parts.
struct SmtpMail {
  const Envelope& envelope;
  const MailSource& source;
  std::string id;  ///< the message's own id, from [0-9a-z]; may be empty
};

/// Sends one message at a time to any servers (RFC 5321) and keeps connections open for the next.
/// A message goes to all its recipients or to none. Its bytes reach the server as they are but for
/// line breaks, which all become CR LF; they are streamed. A message with bytes above 127 is
/// announced with BODY=8BITMIME to a server that offers both 8BITMIME and DSN; others get it
/// unannounced. One thread at a time; each has its own.
class KAVI_API SmtpClient {
 public:
  /// \param helloName  how this host calls itself; one that is no host name becomes "localhost".
  explicit SmtpClient(std::string helloName);
  ~SmtpClient();
  SmtpClient(const SmtpClient&) = delete;
  SmtpClient& operator=(const SmtpClient&) = delete;

  /// Addresses are checked before anything is sent. Answers within the total time and a second.
  SmtpOutcome send(const SmtpDestination& to, const SmtpTimeouts& timeouts, const SmtpMail& mail);

  /// The one of this thread, made at its first use. \param helloName  counts at that use.
  static SmtpClient& ofThisThread(const std::string& helloName);

 private:
  class Connections;
  std::unique_ptr<Connections> connections_;
};

}  // namespace host::delivery
