// What `kavi run` says about messages.
#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "gateway/cli/message_job.h"
#include "gateway/cli/terminal.h"

namespace gateway::cli {

/// A message's report for people: several lines, the last with its line break. Everything that
/// comes from the message is made printable.
/// \param verbose  adds log lines and what is wrong with the message's form
std::string textReport(const MessageResult& result, const Style& style, bool verbose);

/// The same for programs: one line of JSON without its line break (docs/policy.md).
std::string jsonReport(const MessageResult& result);

/// What changed, part by part, and the difference when there is one: lines of `textReport`.
std::string changesText(const MessageResult& result, const Style& style);

/// Counts over all messages of a command.
class Summary {
 public:
  void add(const MessageResult& result);
  /// An input that could not be reached at all.
  void addFault() { ++unreadable_; }

  std::size_t messages() const { return messages_; }
  /// Whether anything went wrong: an action failed, or an input could not be read or a result not
  /// be written.
  bool failed() const { return failed_ != 0 || unreadable_ != 0 || unwritten_ != 0; }

  /// Whether a rule refused a message for now: it is not done with.
  bool hasTempFailed() const { return tempFailed_ != 0; }

  /// A few lines for people.
  std::string text(const Style& style, double seconds) const;
  /// The verdicts so far, short, for the progress line.
  std::string brief() const;

 private:
  std::size_t messages_ = 0;
  std::size_t unchanged_ = 0;
  std::size_t changed_ = 0;
  std::size_t disposed_ = 0;
  std::size_t rejected_ = 0;
  std::size_t tempFailed_ = 0;
  std::size_t failed_ = 0;
  std::size_t unreadable_ = 0;
  std::size_t unwritten_ = 0;
  std::map<std::pair<unsigned int, std::string>, std::size_t> matches_;
};

}  // namespace gateway::cli
