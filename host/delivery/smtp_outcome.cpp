#include "host/delivery/smtp_outcome.h"

#include "host/core/text_escape.h"

namespace host::delivery {

namespace {

constexpr int kServiceClosing = 421;

const char* whileDoing(SmtpStage stage) {
  switch (stage) {
    case SmtpStage::None:
      return "";
    case SmtpStage::Connect:
      return " while connecting";
    case SmtpStage::Greeting:
      return " at the greeting";
    case SmtpStage::Hello:
      return " at EHLO";
    case SmtpStage::Tls:
      return " at STARTTLS";
    case SmtpStage::Login:
      return " at AUTH";
    case SmtpStage::Sender:
      return " at MAIL FROM";
    case SmtpStage::Recipient:
      return " at RCPT TO";
    case SmtpStage::Data:
      return " at DATA";
    case SmtpStage::Body:
      return " while sending the message";
    case SmtpStage::End:
      return " behind the final dot";
  }
  return "";
}

}  // namespace

bool SmtpOutcome::isFinal() const {
  switch (error) {
    case AdapterError::BadAddress:
    case AdapterError::Utf8Address:
    case AdapterError::NoRecipients:
    case AdapterError::TooManyPasses:
    case AdapterError::GaveUp:
      return true;
    case AdapterError::RefusedForGood:
    case AdapterError::RecipientRefusedForGood:
      return stage >= SmtpStage::Sender && replyCode != kServiceClosing;
    default:
      return false;
  }
}

bool SmtpOutcome::isUncertain() const {
  const bool answered = replyCode >= 400 && replyCode < 600;
  return !isSent() && stage == SmtpStage::End && !answered;
}

std::string SmtpOutcome::text() const {
  std::string line;
  if (!server.empty()) line = server + ": ";
  line += adapterErrorText(static_cast<unsigned int>(error));
  line += whileDoing(stage);
  if (!address.empty()) line += " <" + core::printable(address) + ">";
  if (!reply.empty()) line += ": " + reply;
  return line;
}

}  // namespace host::delivery
