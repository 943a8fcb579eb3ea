// What was said on an SMTP connection, as far as it matters for the outcome.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "host/delivery/smtp_outcome.h"

namespace host::delivery {

/// What a server's answer to EHLO offers.
struct SmtpOffers {
  bool eightBitMime = false;
  bool dsn = false;

  bool operator==(const SmtpOffers&) const = default;
};

/// Follows one transfer: fed with the commands sent and the lines received.
class SmtpDialogue {
 public:
  void onCommand(std::string_view line);
  void onReplyLine(std::string_view line);
  /// The message's first bytes go out.
  void onBody();
  /// The final dot goes out.
  void onEnd();

  SmtpStage stage() const { return stage_; }
  /// The number of the recipient that was named last, counted from 1.
  std::size_t recipient() const { return recipient_; }
  /// The code of the reply to the last command, 0 before it came.
  int replyCode() const { return replyComplete_ ? replyCode_ : 0; }
  const std::string& reply() const { return reply_; }
  /// Whether the server was greeted: a new connection.
  bool sawHello() const { return sawHello_; }
  const SmtpOffers& offers() const { return offers_; }

 private:
  void expectReply();
  void noteOffer(std::string_view line);

  SmtpStage stage_ = SmtpStage::Connect;
  std::size_t recipient_ = 0;
  int replyCode_ = 0;
  bool replyComplete_ = false;
  std::string reply_;
  bool sawHello_ = false;
  bool parting_ = false;
  SmtpOffers offers_;
};

}  // namespace host::delivery
