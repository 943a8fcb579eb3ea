// Which messages were answered without a sign that the answer was read.
#pragma once

#include <cstddef>
#include <mutex>
#include <set>
#include <string>

#include "gateway/milter/recent_names.h"
#include "host/core/file_ops.h"
#include "host/store/effect_ledger.h"

namespace gateway::milter {

/// The effects of a message are forgotten before its answer goes out, as libmilter does not say
/// when it has. When the process is killed between the two, or the mail system goes away, the
/// sender tries again and the effects happen again. So each message is marked by a file of its own
/// until the mail system says something more, and a mark that was left tells the next attempt that
/// the message is possibly doubled. Marks outlive the process; one that is lost in a power cut is
/// missed. Old marks go, and so do the first ones when too many are left. Safe from any thread.
class AnswerMarks {
 public:
  /// So many marks are left at most.
  static constexpr std::size_t kMostLeft = 10'000;

  /// \param folder  made with mode 0700 when it is missing
  /// \return an error text; empty for success.
  std::string open(const std::string& folder);

  /// A message's effects are going to be forgotten. \return whether an earlier attempt has left its
  ///   mark.
  bool begin(const host::store::Digest& message);
  /// Whether the mail system had an answer to this message before, as far as this process knows:
  /// of the last `kMostLeft` such messages, and of 30 days. It was refused behind this gateway,
  /// then, or sent twice.
  bool wasAnswered(const host::store::Digest& message);
  /// The mail system has the answer.
  void end(const host::store::Digest& message);
  /// The mail system has hung up, and may not have read the answer: the mark stays.
  void leave(const host::store::Digest& message);
  /// The process ends as it should: every answer is out.
  void endAll();

 private:
  void keep(const std::string& name);

  std::string folder_;
  std::mutex mutex_;
  RecentNames left_{kMostLeft};      ///< the names of marks that were left
  RecentNames answered_{kMostLeft};  ///< those of messages whose answer was read
  std::set<std::string> own_;
};

}  // namespace gateway::milter
