// One SMTP transaction by way of the transfer library.
#pragma once

#include <memory>
#include <string>

#include "host/delivery/envelope.h"
#include "host/delivery/mail_feed.h"
#include "host/delivery/smtp_destination.h"
#include "host/delivery/smtp_dialogue.h"
#include "host/delivery/smtp_outcome.h"

namespace host::delivery {

/// The connection that a transaction runs on.
struct SmtpSession {
  const SmtpDestination& to;
  SmtpTimeouts timeouts;
  const std::string& helloName;
  bool freshConnection = false;  ///< none that was kept
};

/// What is sent. The envelope's addresses are checked already.
struct Submission {
  const Envelope& envelope;
  MailFeed& feed;  ///< surveyed
  const std::string& id;
  bool announceEightBit = false;  ///< to a server that offers 8BITMIME and DSN
};

/// Runs transactions one after the other and keeps their connections. One thread at a time.
class SmtpEngine {
 public:
  SmtpEngine();
  ~SmtpEngine();
  SmtpEngine(const SmtpEngine&) = delete;
  SmtpEngine& operator=(const SmtpEngine&) = delete;

  /// Sends \p submission; null only makes sure that a connection stands.
  /// \param dialogue  new; receives what was said.
  SmtpOutcome run(const SmtpSession& session, Submission* submission, SmtpDialogue& dialogue);

 private:
  struct Handles;
  class Transfer;
  std::unique_ptr<Handles> handles_;
};

}  // namespace host::delivery
