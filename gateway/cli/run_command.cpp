#include "gateway/cli/run_command.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>
#include <utility>

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
    if (!result.ran || !result.error.empty()) broken_ = true;
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
      error = out_.pathOf(current_->outputName) + ": not written, because of a message's error";
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
    return summary_.failed() || failed_ ? ExitFailed : ExitDone;
  }

 private:
  static bool isDull(const MessageResult& result) {
    return result.ran && result.error.empty() && result.outcome.rules.empty() &&
           result.outcome.verdict == engine::Verdict::Unchanged;
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
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (progressOn()) std::fflush(stdout);
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

}  // namespace

int runCommand(const RunOptions& options) {
  JobSettings settings;
  if (!readAddresses(options.from, options.recipients, settings)) return ExitUsage;
  const std::unique_ptr<Startup> startup = Startup::begin(options.config);
  if (startup == nullptr) return ExitUsage;
  settings.policy = loadSnapshot(options.policy);
  if (settings.policy == nullptr) return ExitUsage;
  settings.log = &startup->log();
  settings.logLevel = options.verbose ? 3 : 2;
  settings.hostName = hostName();
  settings.trusted = options.trusted;
  settings.diff = options.diff;

  Inputs inputs = Inputs::collect(options.inputs, options.out, adapterNames());
  inputs.protect(options.policy);
  if (!options.config.empty()) inputs.protect(options.config);
  std::optional<OutputFolder> out;
  if (!options.out.empty()) {
    out.emplace(options.out, inputs);
    if (const std::string path = out->inputInTheWay(); !path.empty()) {
      complain("the result would replace the input " + host::core::printable(path) +
               " (choose another --out folder)");
      return ExitUsage;
    }
    if (const std::string fault = out->begin(); !fault.empty()) {
      complain(host::core::printable(fault) + " (choose another --out folder)");
      return ExitUsage;
    }
    settings.out = &*out;
  }
  Reporter reporter(options, inputs, settings.out);
  runMessages(
      threadsFor(options), settings,
      [&inputs](const std::function<bool(InputMessage)>& take) { forEachMessage(inputs, take); },
      [&reporter](const MessageResult& result) { reporter.report(result); });
  return reporter.finish();
}

}  // namespace gateway::cli
