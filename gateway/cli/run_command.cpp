#include "gateway/cli/run_command.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>
#include <utility>

#include "gateway/cli/deliverer.h"
#include "gateway/cli/delivery_setup.h"
#include "gateway/cli/json_output.h"
#include "gateway/cli/message_job.h"
#include "gateway/cli/output_folder.h"
#include "gateway/cli/pipeline.h"
#include "gateway/cli/progress.h"
#include "gateway/cli/report.h"
#include "gateway/cli/startup.h"
#include "host/core/text_escape.h"

namespace gateway::cli {
namespace {

unsigned int threadsFor(const RunOptions& options) {
  if (options.jobs != 0) return options.jobs;
  return std::max(1U, std::thread::hardware_concurrency());
}

/// Puts the messages of an mbox that go on back together.
class MboxWriter {
 public:
  explicit MboxWriter(const OutputFolder& out) : out_(out) {}

  /// \return an error text, empty for success.
  std::string add(const MessageResult& result) {
    std::string error = result.file != current_ ? finish() : std::string();
    if (result.number == 0) return error;
    current_ = result.file;
    const bool stays = result.outcome.verdict == engine::Verdict::Failed ||
                       result.outcome.verdict == engine::Verdict::TempFailed;
    if (!result.ran || !result.error.empty() || (stays && out_.isMail())) broken_ = true;
    if (result.rendered == nullptr) return error;
    if (!file_) file_.emplace(out_, result.file->outputName);
    file_->write(result.rendered->data(), result.rendered->size());
    file_->write(result.separator.data(), result.separator.size());
    return error;
  }

  std::string finish() {
    std::string error;
    if (broken_) {
      // A part of it would look like the whole.
      error = out_.pathOf(current_->outputName) +
              ": not written, because a message of it failed or was refused for now";
    } else if (file_) {
      error = file_->commit();
    }
    broken_ = false;
    file_.reset();
    current_ = nullptr;
    return error;
  }

 private:
  const OutputFolder& out_;
  const InputFile* current_ = nullptr;
  std::optional<OutputFile> file_;
  bool broken_ = false;  ///< a message of the file could not be read or run
};

/// Writes reports and keeps count.
class Reporter {
 public:
  Reporter(const RunOptions& options, const Inputs& inputs, const OutputFolder* out)
      : options_(options),
        style_(options.colour, STDOUT_FILENO),
        many_(inputs.files().size() > 1),
        progress_(many_ && !options.json && isTerminal(STDERR_FILENO), inputs.files().size()),
        started_(std::chrono::steady_clock::now()) {
    if (out != nullptr) mbox_.emplace(*out);
    for (const InputFault& fault : inputs.faults()) reportFault(fault);
    for (const LeftOut& left : inputs.leftOut()) reportLeftOut(left);
  }

  void report(const MessageResult& result) {
    summary_.add(result);
    if (mbox_) noteMbox(mbox_->add(result));
    if (result.file != lastFile_) ++filesSeen_;
    lastFile_ = result.file;
    if (result.number > 1) many_ = true;
    if (options_.json) {
      print(jsonReport(result) + "\n");
    } else if (!options_.quiet || !isDull(result)) {
      const std::string gap = printed_ ? "\n" : "";
      print(gap + textReport(result, style_, options_.verbose));
    }
    progress_.show(filesSeen_, summary_.brief());
  }

  int finish() {
    if (mbox_) noteMbox(mbox_->finish());
    progress_.clear();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started_;
    if (!options_.json && (many_ || options_.quiet || summary_.messages() == 0)) {
      print((printed_ ? "\n" : "") + summary_.text(style_, took.count()));
    }
    // Of mail, what was refused for now is still to be done.
    const bool unfinished = options_.deliver && summary_.hasTempFailed();
    return summary_.failed() || failed_ || unfinished ? ExitFailed : ExitDone;
  }

 private:
  static bool isDull(const MessageResult& result) {
    return result.ran && result.error.empty() && result.outcome.rules.empty() &&
           result.outcome.verdict == engine::Verdict::Unchanged;
  }

  static void reportLeftOut(const LeftOut& left) {
    std::string what;
    if (left.hidden != 0) what = withThousands(left.hidden) + " hidden";
    if (left.special != 0) {
      what += (what.empty() ? "" : " and ") + withThousands(left.special) +
              " that are no files (pipes, sockets, dangling links)";
    }
    complain(host::core::printable(left.folder + ": left out " + what + ", such as " + left.first));
  }

  void reportFault(const InputFault& fault) {
    summary_.addFault();
    if (options_.json) {
      MessageResult result;
      result.name = fault.path;
      result.error = fault.reason;
      print(jsonReport(result) + "\n");
    } else {
      complain(host::core::printable(fault.path + ": " + fault.reason));
    }
  }

  void noteMbox(const std::string& error) {
    if (error.empty()) return;
    failed_ = true;
    progress_.clear();
    complain(host::core::printable(error));
  }

  void print(const std::string& text) {
    progress_.clear();
    printText(text);
    // What fails here leaves its mark on the stream, for the end.
    if (progressOn()) static_cast<void>(std::fflush(stdout));
    printed_ = true;
  }

  bool progressOn() const { return many_ && !options_.json; }

  const RunOptions& options_;
  Style style_;
  bool many_;
  Progress progress_;
  std::chrono::steady_clock::time_point started_;
  Summary summary_;
  std::optional<MboxWriter> mbox_;
  const InputFile* lastFile_ = nullptr;
  std::size_t filesSeen_ = 0;
  bool printed_ = false;
  bool failed_ = false;
};

/// \return false after writing the reason to standard error.
bool beginOutput(OutputFolder& out) {
  constexpr char kRemedy[] = " (choose another --out folder)";
  if (const std::string path = out.inputInTheWay(); !path.empty()) {
    complain("the result would replace the input " + host::core::printable(path) + kRemedy);
    return false;
  }
  const std::string fault = out.begin();
  if (!fault.empty()) complain(host::core::printable(fault) + kRemedy);
  return fault.empty();
}

/// Says which reprocessing fields of the inputs count.
void setTrust(const RunOptions& options, const std::optional<host::delivery::SealKeys>& keys,
              JobSettings& settings) {
  using host::delivery::ReprocessTrust;
  if (options.trusted) settings.trust = ReprocessTrust::Assumed;
  if (options.reinjected) settings.trust = ReprocessTrust::Sealed;
  if (keys) settings.sealKeys = &*keys;
}

/// Sends what is due, and gives the messages their final answer when all of them went well. Not
/// before: of a command that is stopped nobody knows how far it got.
/// \param status  how running the messages ended
int conclude(const RunOptions& options, Deliverer& deliverer, OutputFolder& out, int status) {
  const Submission submission = deliverer.submit(options.verbose);
  const std::string text =
      options.json ? jsonReport(submission) + "\n"
                   : "\n" + textReport(submission, Style(options.colour, STDOUT_FILENO));
  printText(text);
  // Who did not get the report will ask for it again.
  if ((std::fflush(stdout) != 0 || std::ferror(stdout) != 0) && status == ExitDone) {
    status = ExitFailed;
  }
  if (status == ExitDone) {
    if (const std::string fault = out.release(); !fault.empty()) {
      complain(host::core::printable(fault));
      status = ExitFailed;
    }
  }
  if (status != ExitDone) {
    complain("not all is done: the same command, run again, does what is missing");
    return status;
  }
  deliverer.answer();
  return submission.good() ? ExitDone : ExitUnsent;
}

}  // namespace

int runCommand(const RunOptions& options) {
  if (options.deliver && options.out.empty()) {
    complain("--deliver needs --out FOLDER: messages that go on are written there");
    return ExitUsage;
  }
  JobSettings settings;
  if (!readAddresses(options.from, options.recipients, settings)) return ExitUsage;
  const std::unique_ptr<Startup> startup = Startup::begin(options.config);
  if (startup == nullptr) return ExitUsage;
  settings.policy = loadPolicy(options.policy, startup->settings()).snapshot;
  if (settings.policy == nullptr) return ExitUsage;
  host::delivery::DeliverySettings delivery;
  std::optional<host::delivery::SealKeys> keys;
  if (options.deliver || options.reinjected) {
    if (!readDelivery(startup->settings(), options.state, delivery)) return ExitUsage;
    keys.emplace(delivery.sealKeyPath());
    if (options.deliver && !actAsOwner(startup->settings(), options.state, delivery, true)) {
      return ExitFailed;
    }
  }
  if (!options.out.empty() && !mayWriteTo(options.out, startup->settings(), options.state)) {
    return ExitUsage;
  }
  settings.log = &startup->log();
  settings.logLevel = options.verbose ? 3 : 2;
  settings.hostName = hostName();
  setTrust(options, keys, settings);
  settings.diff = options.diff;

  Inputs inputs = Inputs::collect(options.inputs, options.out, adapterNames());
  if (!options.policy.file.empty()) inputs.protect(options.policy.file);
  if (!options.config.empty()) inputs.protect(options.config);
  std::optional<Deliverer> deliverer;
  if (options.deliver) {
    deliverer.emplace(delivery, *keys, startup->log());
    if (!deliverer->open(startup->settings(), *settings.policy)) return ExitFailed;
    settings.adapters = &*deliverer;
  }
  std::optional<OutputFolder> out;
  if (!options.out.empty()) {
    out.emplace(options.out, inputs, options.deliver ? OutputUse::Mail : OutputUse::Preview);
    if (!beginOutput(*out)) return ExitUsage;
    settings.out = &*out;
  }
  Reporter reporter(options, inputs, settings.out);
  runMessages(
      threadsFor(options), settings,
      [&inputs](const std::function<bool(InputMessage)>& take) { forEachMessage(inputs, take); },
      [&](const MessageResult& result) {
        reporter.report(result);
        if (deliverer) deliverer->keep(result);
      });
  const int status = reporter.finish();
  return deliverer ? conclude(options, *deliverer, *out, status) : status;
}

}  // namespace gateway::cli
