#include "host/delivery/smtp_client.h"

#include <chrono>
#include <map>

#include "host/delivery/mail_feed.h"
#include "host/delivery/smtp_address.h"
#include "host/delivery/smtp_transfer.h"

namespace host::delivery {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kServiceClosing = 421;
constexpr int kMaxPort = 65535;

// Time that is left of a limit.
class Deadline {
 public:
  explicit Deadline(int limitMs) : end_(Clock::now() + std::chrono::milliseconds(limitMs)) {}

  int leftMs() const {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end_ - Clock::now());
    return static_cast<int>(left.count());
  }

 private:
  Clock::time_point end_;
};

// A connection that was kept may be gone by now; then the first command says so, and nothing of
// the message was sent.
bool wasStale(const SmtpOutcome& outcome, const SmtpDialogue& dialogue) {
  if (dialogue.sawHello() || outcome.stage != SmtpStage::Sender) return false;
  return outcome.error == AdapterError::ConnectionLost || outcome.replyCode == kServiceClosing;
}

}  // namespace

class SmtpClient::Connections {
 public:
  explicit Connections(std::string helloName) : helloName_(std::move(helloName)) {
    if (checkHost(helloName_) != AdapterError::None) helloName_ = "localhost";
  }

  SmtpOutcome send(const SmtpDestination& to, const SmtpTimeouts& timeouts, const SmtpMail& mail) {
    MailFeed feed(mail.source, buffer_.get());
    if (!feed.survey()) {
      SmtpOutcome unreadable;
      unreadable.error = AdapterError::MessageUnreadable;
      return unreadable;
    }
    const Deadline deadline(timeouts.totalMs);
    SmtpOffers& offers = offers_[to.text()];
    // What a server offers is known once a connection stands; the first message with bytes above
    // 127 asks for it.
    if (feed.hasEightBit() && !wasGreetedBy(to)) {
      SmtpOutcome greeted = attempt({to, timeouts, helloName_}, nullptr, deadline, offers);
      if (!greeted.isSent()) return greeted;
    }
    const SmtpOffers assumed = offers;
    Submission submission{mail.envelope, feed, mail.id, feed.hasEightBit() && canAnnounce(assumed)};
    SmtpOutcome outcome = attempt({to, timeouts, helloName_}, &submission, deadline, offers);
    const bool offersOther = outcome.stage == SmtpStage::Sender && offers != assumed;
    if (outcome.isSent() || !(stale_ || offersOther)) return outcome;
    submission.announceEightBit = feed.hasEightBit() && canAnnounce(offers);
    SmtpSession fresh{to, timeouts, helloName_};
    fresh.freshConnection = true;
    return attempt(fresh, &submission, deadline, offers);
  }

 private:
  // The trick that announces 8-bit content needs DSN: see SmtpTransfer.
  static bool canAnnounce(const SmtpOffers& offers) { return offers.eightBitMime && offers.dsn; }

  bool wasGreetedBy(const SmtpDestination& to) const {
    const auto known = greeted_.find(to.text());
    return known != greeted_.end() && known->second;
  }

  SmtpOutcome attempt(SmtpSession session, Submission* submission, const Deadline& deadline,
                      SmtpOffers& offers) {
    session.timeouts.totalMs = deadline.leftMs();
    const bool stopped = session.timeouts.breakOff.stop_requested();
    if (session.timeouts.totalMs <= 0 || stopped) {
      SmtpOutcome late;
      late.error = stopped ? AdapterError::BrokenOff : AdapterError::TimedOut;
      late.server = session.to.text();
      return late;
    }
    SmtpDialogue dialogue;
    SmtpOutcome outcome = engine_.run(session, submission, dialogue);
    if (dialogue.sawHello()) {
      offers = dialogue.offers();
      greeted_[session.to.text()] = true;
    }
    stale_ = !outcome.isSent() && wasStale(outcome, dialogue);
    return outcome;
  }

  std::string helloName_;
  std::unique_ptr<char[]> buffer_ = std::make_unique<char[]>(MailFeed::kBufferBytes);
  SmtpEngine engine_;
  std::map<std::string, SmtpOffers> offers_;
  std::map<std::string, bool> greeted_;
  bool stale_ = false;
};

SmtpClient::SmtpClient(std::string helloName)
    : connections_(std::make_unique<Connections>(std::move(helloName))) {}

SmtpClient::~SmtpClient() = default;

SmtpOutcome SmtpClient::send(const SmtpDestination& to, const SmtpTimeouts& timeouts,
                             const SmtpMail& mail) {
  SmtpOutcome refused;
  std::string_view faulty;
  if (!to.isSet()) {
    refused.error = AdapterError::NoDestination;
  } else if (to.port <= 0 || to.port > kMaxPort) {
    refused.error = AdapterError::InvalidArgument;
  } else if (checkHost(to.host) != AdapterError::None) {
    faulty = to.host;
    refused.error = AdapterError::BadAddress;
  } else {
    refused.error = checkEnvelope(mail.envelope, faulty);
  }
  refused.address = faulty;
  if (refused.error != AdapterError::None) return refused;
  return connections_->send(to, timeouts, mail);
}

SmtpClient& SmtpClient::ofThisThread(const std::string& helloName) {
  thread_local SmtpClient client(helloName);
  return client;
}

}  // namespace host::delivery
