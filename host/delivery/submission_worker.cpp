#include "host/delivery/submission_worker.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <iterator>
#include <set>

#include "host/core/text_escape.h"
#include "host/delivery/adapter_guard.h"
#include "host/delivery/outgoing_mail.h"

namespace host::delivery {

namespace {

constexpr int kFailures = 1;
constexpr int kNotices = 2;
constexpr int kDetail = 3;

std::string recipientsText(const Envelope& envelope) {
  constexpr std::size_t kMostNamed = 20;
  std::string text;
  for (std::size_t index = 0; index < envelope.recipients.size(); ++index) {
    if (index == kMostNamed) {
      return text + ", and " + std::to_string(envelope.recipients.size() - index) + " more";
    }
    text += (index == 0 ? "<" : ", <") + core::printable(envelope.recipients[index]) + ">";
  }
  return text;
}

}  // namespace

// One run over the spool. Its connections go with it.
class SubmissionWorker::Run {
 public:
  Run(SubmissionWorker& worker, std::int64_t now)
      : worker_(worker), client_(worker.settings_.helloName), begin_(now) {}

  void visit(const std::string& id) {
    const AdapterError error = guardedOutcome([&] { return tryEntry(id); });
    if (error == AdapterError::None || error == AdapterError::NotFound) return;
    if (error == AdapterError::UnderWay) {
      ++counts_.busy;
      return;
    }
    ++counts_.troubled;
    log(kFailures, "Cannot work at message %s in the spool: %s.", id.c_str(),
        adapterErrorText(static_cast<unsigned int>(error)));
  }

  // A removal that could not be flushed has left no entry to visit, but may not outlast a power
  // cut.
  void finishRemovals(const std::vector<std::string>& ids) {
    for (auto each = worker_.unremoved_.begin(); each != worker_.unremoved_.end();) {
      const bool isThere = std::find(ids.begin(), ids.end(), *each) != ids.end();
      const bool isGone = !isThere && worker_.spool_.remove(*each) == AdapterError::NotFound;
      each = isGone ? worker_.unremoved_.erase(each) : std::next(each);
    }
  }

  const SubmissionCounts& counts() const { return counts_; }

 private:
  struct Entry {
    std::string id;
    SpoolEntry head;
    SpoolState state;
  };

  template <class... Arguments>
  void log(int level, const char* format, Arguments... arguments) const {
    Kavi::LogMsg* out = worker_.log_;
    if (out == nullptr || out->getLevel() < level) return;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    out->write(level, format, arguments...);
#pragma GCC diagnostic pop
  }

  // The present time, whatever the run was told it is at its begin.
  std::int64_t now() const {
    const auto passed = std::chrono::steady_clock::now() - start_;
    return begin_ + std::chrono::duration_cast<std::chrono::seconds>(passed).count();
  }

  AdapterError readState(Entry& entry) const {
    std::string text;
    const AdapterError error = worker_.spool_.readLog(entry.id, text);
    if (error != AdapterError::None) return error;
    entry.state = SpoolState::of(parseSpoolLog(text));
    // Its log need not have taken that.
    if (worker_.unremoved_.contains(entry.id)) entry.state.sent = true;
    return error;
  }

  AdapterError tryEntry(const std::string& id) {
    Entry entry{id, {}, {}};
    AdapterError error = readState(entry);
    if (error != AdapterError::None) return error;
    if (entry.state.failed) {
      ++counts_.stuck;
      return AdapterError::None;
    }
    error = worker_.spool_.readHead(id, entry.head);
    const bool isDamaged = error == AdapterError::Damaged;
    if (error != AdapterError::None && !isDamaged) return error;
    if (!entry.state.sent && !isDamaged && !isDue(entry)) return AdapterError::None;
    core::Descriptor hold;
    error = worker_.spool_.hold(id, hold);
    // Whoever held it before may have changed its state.
    if (error == AdapterError::None) error = readState(entry);
    if (error != AdapterError::None) return error;
    if (entry.state.sent) return removeSent(entry);
    if (entry.state.failed) return AdapterError::None;
    if (isDamaged) return failDamaged(entry);
    return isDue(entry) ? submit(entry) : AdapterError::None;
  }

  bool isDue(const Entry& entry) {
    const std::int64_t present = now();
    const std::int64_t due = dueTime(entry.head, entry.state, worker_.settings_.retry, present);
    if (due <= present) return true;
    ++counts_.waiting;
    noteDue(due);
    return false;
  }

  void noteDue(std::int64_t due) { counts_.nextDue = std::min(due, counts_.nextDue.value_or(due)); }

  AdapterError failDamaged(const Entry& entry) {
    SmtpOutcome outcome;
    outcome.error = AdapterError::Damaged;
    return fail(entry, outcome);
  }

  AdapterError submit(Entry& entry) {
    const bool rescan = entry.head.isForScanning();
    const SmtpDestination& to = rescan ? worker_.settings_.scan : worker_.settings_.plain;
    if (down_.contains(&to)) {
      ++counts_.skipped;
      return AdapterError::None;
    }
    std::string message;
    AdapterError error = worker_.spool_.read(entry.id, entry.head, message);
    SmtpOutcome outcome;
    outcome.error = error;
    if (error == AdapterError::Damaged) return fail(entry, outcome);
    if (error != AdapterError::None) return error;
    OutgoingMail mail(message);
    if (rescan) {
      if (entry.head.kind == kPostponedKind) mail.heldBackBy(entry.head.rule);
      outcome.error = mail.seal(entry.head.envelope, entry.head.passes, worker_.keys_, now());
    } else {
      mail.withoutFields();
    }
    if (entry.state.isPossiblyDoubled()) {
      log(kFailures,
          "Message %s is possibly doubled: an earlier attempt to send it may have succeeded.",
          entry.id.c_str());
    }
    error = record(entry, {SpoolEvent::Kind::Attempt, now(), 0, {}, 0, false});
    if (error != AdapterError::None) return error;
    if (outcome.isSent()) {
      const SliceSource source = mail.source();
      outcome = client_.send(to, worker_.settings_.timeouts,
                             {entry.head.envelope, source, entry.head.messageId});
    }
    return settle(entry, to, outcome);
  }

  void tell(const Entry& entry, SmtpResult result) const {
    if (worker_.observer_ == nullptr) return;
    const bool scans = entry.head.isForScanning();
    worker_.observer_->submitted(scans ? SmtpRoute::Scan : SmtpRoute::Plain, result);
  }

  AdapterError settle(Entry& entry, const SmtpDestination& to, const SmtpOutcome& outcome) {
    if (outcome.isSent()) return finish(entry, outcome);
    if (outcome.isFinal()) return fail(entry, outcome);
    // It is the server that is not there, and not this message that it does not like.
    if (!outcome.server.empty() && outcome.stage < SmtpStage::Sender) down_.insert(&to);
    const bool isFirst = entry.state.recentAttempts == 0;
    if (!isFirst && now() - entry.state.firstAttempt >= worker_.settings_.retry.giveUpAfter) {
      SmtpOutcome last = outcome;
      last.error = AdapterError::GaveUp;
      return fail(entry, last, outcome.text());
    }
    return defer(entry, outcome);
  }

  AdapterError finish(const Entry& entry, const SmtpOutcome& outcome) {
    ++counts_.sent;
    tell(entry, SmtpResult::Sent);
    log(kDetail, "Message %s sent: %s.", entry.id.c_str(), outcome.reply.c_str());
    const AdapterError removed = remove(entry);
    if (removed == AdapterError::None) return removed;
    // It went out, and must not go out again because its file cannot be removed just now.
    worker_.unremoved_.insert(entry.id);
    const AdapterError recorded = record(entry, {SpoolEvent::Kind::Sent, now(), 0, {}, 0, false});
    log(kFailures,
        "Message %s was sent but cannot be removed from the spool, which is tried again: %s%s.",
        entry.id.c_str(), adapterErrorText(static_cast<unsigned int>(removed)),
        recorded == AdapterError::None ? ""
                                       : "; nor can that be written down, so that it is sent again "
                                         "if this process ends first");
    return AdapterError::None;
  }

  AdapterError removeSent(const Entry& entry) const {
    const AdapterError removed = remove(entry);
    if (removed == AdapterError::None) worker_.unremoved_.erase(entry.id);
    return removed;
  }

  // Takes a message that went out of the spool, and of the index. A row that stays is removed at
  // the next start.
  AdapterError remove(const Entry& entry) const {
    const AdapterError removed = worker_.spool_.remove(entry.id);
    if (removed != AdapterError::None || entry.head.kind != kPostponedKind) return removed;
    if (worker_.index_ == nullptr) return removed;
    const store::StoreStatus status = worker_.index_->remove(entry.id);
    if (!status.ok()) {
      log(kNotices, "Message %s is gone, its row of the index is not: %s.", entry.id.c_str(),
          status.text.c_str());
    }
    return removed;
  }

  AdapterError defer(Entry& entry, const SmtpOutcome& outcome) {
    SpoolEvent event{SpoolEvent::Kind::Deferred, now(), codeOf(outcome), outcome.text(), 0,
                     outcome.isUncertain()};
    event.due = event.at + worker_.settings_.retry.pauseAfter(entry.state.recentAttempts + 1);
    ++counts_.deferred;
    tell(entry, SmtpResult::Deferred);
    noteDue(event.due);
    log(kNotices, "Message %s waits %lld seconds for the next attempt: %s.", entry.id.c_str(),
        static_cast<long long>(event.due - event.at), event.text.c_str());
    return record(entry, event);
  }

  AdapterError fail(const Entry& entry, const SmtpOutcome& outcome, const std::string& why = {}) {
    SpoolEvent event{SpoolEvent::Kind::Failed, now(), codeOf(outcome),
                     outcome.text(),           0,     outcome.isUncertain()};
    if (!why.empty()) event.text = std::string(adapterErrorText(event.code)) + "; last: " + why;
    ++counts_.failed;
    tell(entry, SmtpResult::Refused);
    log(kFailures, "Message %s stays in the spool as failed, for %s: %s.", entry.id.c_str(),
        recipientsText(entry.head.envelope).c_str(), event.text.c_str());
    return record(entry, event);
  }

  static unsigned int codeOf(const SmtpOutcome& outcome) {
    return static_cast<unsigned int>(outcome.error);
  }

  AdapterError record(const Entry& entry, const SpoolEvent& event) const {
    return worker_.spool_.appendLog(entry.id, writeSpoolEvent(event));
  }

  SubmissionWorker& worker_;
  SmtpClient client_;
  std::int64_t begin_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  std::set<const SmtpDestination*> down_;  ///< servers that did not answer in this run
  SubmissionCounts counts_;
};

SubmissionWorker::SubmissionWorker(Spool& spool, const DeliverySettings& settings,
                                   const SealKeys& keys, Kavi::LogMsg* log, SpoolIndex* index)
    : spool_(spool), settings_(settings), keys_(keys), log_(log), index_(index) {}

SubmissionCounts SubmissionWorker::runOnce(std::int64_t now, const std::stop_token& stop) {
  SubmissionCounts counts;
  const AdapterError error = guardedOutcome([&] {
    std::vector<std::string> ids;
    const AdapterError listed = spool_.list(ids);
    if (listed != AdapterError::None) return listed;
    Run run(*this, now);
    run.finishRemovals(ids);
    for (const std::string& id : ids) {
      if (stop.stop_requested()) break;
      run.visit(id);
    }
    counts = run.counts();
    return AdapterError::None;
  });
  if (error != AdapterError::None) {
    ++counts.troubled;
    if (log_ != nullptr && log_->getLevel() >= kFailures) {
      log_->write(kFailures, "Cannot read the spool: %s.",
                  adapterErrorText(static_cast<unsigned int>(error)));
    }
  }
  return counts;
}

void SubmissionWorker::run(const std::stop_token& stop, std::chrono::milliseconds longestWait) {
  while (!stop.stop_requested()) {
    const std::int64_t now = std::time(nullptr);
    const SubmissionCounts counts = runOnce(now, stop);
    std::chrono::milliseconds wait = longestWait;
    if (counts.nextDue) {
      const std::chrono::seconds untilDue(std::max<std::int64_t>(*counts.nextDue - now, 1));
      wait = std::min<std::chrono::milliseconds>(wait, untilDue);
    }
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, stop, wait, [this] { return awake_; });
    awake_ = false;
  }
}

void SubmissionWorker::wake() {
  const std::lock_guard lock(mutex_);
  awake_ = true;
  changed_.notify_one();
}

}  // namespace host::delivery
