#include "gateway/milter/daemon.h"

#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <stop_token>
#include <thread>
#include <utility>
#include <vector>

#include "gateway/engine/filing_folders.h"
#include "gateway/engine/known_settings.h"
#include "gateway/engine/library_start.h"
#include "gateway/engine/settings_check.h"
#include "gateway/milter/file_policy.h"
#include "gateway/milter/housekeeping.h"
#include "gateway/milter/instance_lock.h"
#include "gateway/milter/message_scan.h"
#include "gateway/milter/milter_settings.h"
#include "gateway/milter/privileges.h"
#include "gateway/milter/server.h"
#include "gateway/milter/signals.h"
#include "gateway/milter/store_policy.h"
#include "gateway/milter/ways_out.h"
#include "host/core/folder.h"
#include "host/core/guard.h"
#include "host/core/text_escape.h"
#include "host/delivery/submission_worker.h"

namespace gateway::milter {
namespace {

using host::delivery::AdapterError;

constexpr char kTemporary[] = "incoming";
constexpr char kAnswers[] = "answers";

void complain(const std::string& text) {
  static_cast<void>(std::fprintf(stderr, "kavi-milter: %s\n", host::core::printable(text).c_str()));
}

/// Every line of \p text that is not empty.
void complainOfLines(const std::string& text) {
  std::size_t begin = 0;
  while (begin < text.size()) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    if (end > begin) complain(text.substr(begin, end - begin));
    begin = end + 1;
  }
}

std::string hostName() {
  std::array<char, 256> name{};
  if (::gethostname(name.data(), name.size() - 1) != 0) return {};
  return name.data();
}

/// Everything that lives as long as the process.
class Daemon {
 public:
  /// \param strict  what is only doubtful in the settings is a fault, too, not only warned of
  /// \return false after saying why.
  bool configure(const std::string& config, bool strict) {
    std::string faults;
    std::vector<std::string> doubts;
    if (settings_.loadFile(config, faults)) {
      doubts = engine::doubtfulSettings(settings_);
      faults = engine::settingsFaults(settings_);
      std::string further;
      if (!milter_.read(settings_, further)) faults += further;
      if (!delivery_.read(settings_, further)) faults += further;
    }
    const std::string warning = "warning: " + config + ": ";
    for (const std::string& line : doubts) complain(warning + line);
    complainOfLines(faults);
    engine::setDefaults(settings_);
    delivery_.timeouts.breakOff = breakOff_.get_token();
    return faults.empty() && !(strict && !doubts.empty());
  }

  /// \return false after saying why.
  bool begin() {
    host::core::LogOptions options = engine::readLogOptions(settings_, 2);
    options.name = "kavi-milter";
    log_ = std::make_unique<host::core::ProcessLog>(options);
    if (milter_.store.empty()) {
      policy_ = std::make_unique<FilePolicy>(milter_.policy);
      return readFirst();
    }
    host::store::StoreStatus status;
    std::unique_ptr<host::store::Database> store =
        host::store::makeStore(milter_.store, status, host::store::Upkeep::Refuse);
    if (store == nullptr) {
      complain(status.text);
      return false;
    }
    policyStore_ = store.get();
    policy_ = std::make_unique<StorePolicy>(std::move(store));
    return true;
  }

  /// Says what is wrong with the policy of a store, with the settings for any policy, and with the
  /// folders that will be needed.
  ExitStatus check() {
    // What this user opens belongs to this user.
    const std::string fault = milter_.user.empty() ? std::string() : dropPrivileges(milter_.user);
    if (!fault.empty()) return refuse(fault);
    if (!milter_.store.empty() && !readFirst()) return ExitUsage;
    const bool isWired = checkWays();
    const bool isPrepared = checkFolders();
    if (!isWired) return ExitUsage;
    return isPrepared ? ExitDone : ExitFailed;
  }

  ExitStatus serve() {
    if (const std::string fault = dropPrivileges(milter_.user); !fault.empty())
      return refuse(fault);
    if (!milter_.store.empty() && !readFirst()) return ExitUsage;
    if (const std::string fault = openState(); !fault.empty()) return refuse(fault);
    const host::delivery::SealKeys keys(delivery_.sealKeyPath());
    if (const std::string fault = beginMetrics(); !fault.empty()) return refuse(fault);
    host::delivery::SubmissionWorker sender(state_.spool(), delivery_, keys, log_.get(),
                                            state_.spoolIndex());
    sender.observe(metrics_.get());
    const Gateway gateway{milter_,
                          *policy_,
                          *log_,
                          state_,
                          delivery_,
                          keys,
                          delivery_.stateFolder + "/" + kTemporary,
                          hostName(),
                          metrics_.get(),
                          &answers_,
                          &strays_};
    Server server(gateway, [&sender] { sender.wake(); });
    if (const std::string fault = server.open(); !fault.empty()) return refuse(fault);
    // Now only: they write down what holds, and who looks for what keeps the daemon from starting
    // would have to look for it behind that.
    engine::startLibrary(settings_, *log_);
    warnOfUnknownListener();
    if (first_.snapshot != nullptr) warnOfWays(*first_.snapshot);
    if (::geteuid() == 0) {
      log_->write(2,
                  "root takes mail from anywhere apart here: name another user in section milter");
    }
    beginPolicy();
    const ReloadSignal reloading([this] { reload(); });
    const std::jthread housekeeping(
        [this](const std::stop_token& stop) { keepHouse(state_, delivery_, *log_, stop); });
    std::atomic<bool> isSending = true;
    std::jthread sending([&](const std::stop_token& stop) {
      sender.run(stop);
      isSending = false;
    });
    log_->write(2, "serving on %s", milter_.socket.c_str());
    sd_notify(0, "READY=1");
    const std::string fault = server.serve();
    sending.request_stop();
    end(server, isSending);
    if (!fault.empty()) return refuse(fault);
    log_->write(2, "stopped");
    return ExitDone;
  }

 private:
  /// \return false after saying what the policy sends and has nowhere to send to.
  bool checkWays() {
    if (first_.snapshot == nullptr) return true;
    const WaysOut ways = waysOf(*first_.snapshot, settings_);
    std::vector<std::string> faults = missingServers(ways, delivery_);
    std::string listener = missingListener(ways, delivery_, milter_.reinjectionListener);
    if (!listener.empty()) faults.push_back(std::move(listener));
    for (const std::string& each : faults) complain(each);
    return faults.empty();
  }

  /// \return false after saying which folders this user could not use.
  bool checkFolders() {
    // What another user may, this one cannot find out.
    if (!isUser(milter_.user)) return true;
    std::vector<std::string> faults;
    engine::checkStateFolder(delivery_.stateFolder, faults);
    if (first_.snapshot != nullptr) {
      engine::checkFilingFolders(*first_.snapshot, settings_, faults);
    }
    for (const std::string& each : faults) complain(each);
    return faults.empty();
  }

  /// Comes back only when nothing is at work any more.
  void end(Server& server, const std::atomic<bool>& isSending) {
    // systemd may have been told another time than these settings need.
    const std::chrono::microseconds longest =
        std::chrono::seconds(milter_.deadlineSeconds) + Server::kFinishMargin;
    sd_notifyf(0, "STOPPING=1\nEXTEND_TIMEOUT_USEC=%lld", static_cast<long long>(longest.count()));
    const bool isDone =
        server.finish([&] { return isSending.load(); }, [this] { breakOff_.request_stop(); });
    if (isDone) return;
    // As a kill: nothing is lost by it, but what is at work uses all that would be destroyed.
    log_->write(1, "stopped in the midst of work that does not end; its senders try again");
    std::_Exit(ExitFailed);
  }

  void warnOfUnknownListener() {
    if (!milter_.reinjectionListener.empty() || !delivery_.scan.isSet()) return;
    log_->write(1,
                "reinjection_listener in section milter is not set: what goes back to %s to be "
                "scanned comes in as any other mail, and the rule that sent it acts again",
                delivery_.scan.text().c_str());
  }

  /// Of the listener, the start tells whatever the policy is.
  void warnOfWays(const policy::Snapshot& policy) {
    const WaysOut ways = waysOf(policy, settings_);
    for (const std::string& line : missingServers(ways, delivery_)) {
      log_->write(1, "%s", line.c_str());
    }
  }

  ExitStatus refuse(const std::string& fault) {
    complain(fault);
    return ExitFailed;
  }

  std::string openState() {
    const std::string& folder = delivery_.stateFolder;
    const AdapterError error = state_.open(folder);
    if (error != AdapterError::None) {
      return folder + ": " + host::delivery::adapterErrorText(static_cast<unsigned int>(error)) +
             " (state_folder in section delivery)";
    }
    // Two would sweep away what the other has on disk and take the socket from each other.
    if (std::string fault = lock_.take(folder); !fault.empty()) return fault;
    std::size_t dropped = 0;
    std::string words;
    if (state_.forgetOldEffects(dropped, words) != AdapterError::None) {
      return folder + ": the store cannot be used: " + words;
    }
    if (std::string fault = sweepTemporary(); !fault.empty()) return fault;
    if (std::string fault = answers_.open(folder + "/" + kAnswers); !fault.empty()) return fault;
    return first_.snapshot == nullptr ? std::string() : prepareFiling(*first_.snapshot);
  }

  std::string beginMetrics() {
    if (milter_.metricsPort == 0) return {};
    try {
      metrics_ = std::make_unique<Metrics>(milter_.metricsPort, state_.spool());
      state_.observe(metrics_.get(), metrics_.get());
      if (policyStore_ != nullptr) policyStore_->observe(metrics_.get());
      return {};
    } catch (const std::exception& fault) {
      return "port " + std::to_string(milter_.metricsPort) + ": " + fault.what() +
             " (metrics_port in section milter)";
    }
  }

  /// Files without a name leave nothing behind, but not every file system has them.
  std::string sweepTemporary() {
    using host::core::FileError;
    host::core::Folder state;
    host::core::Folder temporary;
    std::vector<std::string> names;
    FileError error = state.open(delivery_.stateFolder, false);
    if (error == FileError::None) error = temporary.openIn(state, kTemporary);
    if (error == FileError::None) error = temporary.list(names);
    for (const std::string& name : names) {
      if (error == FileError::None) error = temporary.remove(name);
    }
    if (error == FileError::None) return {};
    return delivery_.stateFolder + "/" + kTemporary + ": " + host::core::fileErrorText(error);
  }

  std::string prepareFiling(const policy::Snapshot& policy) {
    std::vector<std::string> notes;
    std::string fault = engine::prepareFilingFolders(policy, settings_, state_, notes, ready_);
    for (const std::string& note : notes) log_->write(2, "%s", note.c_str());
    return fault;
  }

  /// \return false when there is a policy that cannot be used; it was said why. With its store away
  /// the daemon serves and refuses mail for now, so that it need not be started again.
  bool readFirst() {
    first_ = policy_->read();
    for (const std::string& fault : first_.faults) complain(fault);
    if (!first_.away.empty()) {
      complain(first_.away + " (until then mail is refused for now)");
    }
    return first_.snapshot != nullptr || !first_.away.empty();
  }

  void beginPolicy() {
    policy_->setHooks({.log = log_.get(),
                       .prepare =
                           [this](const policy::Snapshot& policy) {
                             // Once only: what cannot be prepared is tried again.
                             std::string fault = prepareFiling(policy);
                             if (fault.empty()) warnOfWays(policy);
                             return fault;
                           },
                       .count =
                           [this](bool used) {
                             if (metrics_ != nullptr) metrics_->countPolicy(used);
                           },
                       .countAway =
                           [this] {
                             if (metrics_ != nullptr) metrics_->countPolicyAway();
                           }});
    policy_->begin(first_);
    first_ = {};
  }

  void reload() {
    host::core::guardedVoid([this] {
      sd_notify(0, "RELOADING=1");
      policy_->reload();
      sd_notify(0, "READY=1");
    });
  }

  InstanceLock lock_;
  host::core::IniSettings settings_;
  MilterSettings milter_;
  host::delivery::DeliverySettings delivery_;
  std::stop_source breakOff_;  ///< ends what is under way with mail servers
  std::unique_ptr<host::core::ProcessLog> log_;
  host::delivery::DeliveryState state_;
  std::unique_ptr<Metrics> metrics_;
  AnswerMarks answers_;
  StrayMail strays_;
  engine::ReadyFolders ready_;  ///< by the start, then by one reading of the policy at a time
  std::unique_ptr<PolicySource> policy_;
  host::store::Database* policyStore_ = nullptr;  ///< that of policy_; null when that is a file
  PolicyReading first_;                           ///< until it is in force
};

}  // namespace

ExitStatus runDaemon(const std::string& config, bool checkOnly) {
  blockSignals();
  Daemon daemon;
  if (!daemon.configure(config, checkOnly) || !daemon.begin()) return ExitUsage;
  return checkOnly ? daemon.check() : daemon.serve();
}

}  // namespace gateway::milter
