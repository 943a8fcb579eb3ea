// Which messages were being answered when the process ended.
#pragma once

#include <mutex>
#include <set>
#include <string>

#include "host/core/file_ops.h"
#include "host/store/effect_ledger.h"

namespace gateway::milter {

/// The effects of a message are forgotten before its answer goes out, as libmilter does not say
/// when it has. When the process is killed between the two, the sender tries again and the effects
/// happen again. So each message is marked over that time by a file of its own, and a mark that a
/// process has left tells the next one that the message it names is possibly doubled. Marks outlive
/// the process; one that is lost in a power cut is missed. Safe from any thread.
class AnswerMarks {
 public:
  /// \param folder  made with mode 0700 when it is missing
  /// \return an error text; empty for success.
  std::string open(const std::string& folder);

  /// A message's effects are going to be forgotten. \return whether an earlier process has left its
  ///   mark.
  bool begin(const host::store::Digest& message);
  /// The mail system has the answer.
  void end(const host::store::Digest& message);
  /// The process ends as it should: every answer is out.
  void endAll();

 private:
  std::string folder_;
  std::mutex mutex_;
  std::set<std::string> left_;  ///< the names of the marks of earlier processes
  std::set<std::string> own_;
};

}  // namespace gateway::milter
