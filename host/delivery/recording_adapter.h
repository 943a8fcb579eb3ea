// The adapter of dry runs: it writes down what a real one would have done.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/core/file_ops.h"
#include "library/platform/is_adapter.h"

namespace host::delivery {

/// One call on a RecordingAdapter.
struct RecordedCall {
  std::string operation;   ///< "delete", "postpone", "handoff", "quarantine", ...
  std::string file;        ///< the message, relative to the out folder; empty when it failed
  unsigned int error = 0;  ///< 0 for success, else an AdapterError
};

/// Where a message comes from.
struct RecordedInput {
  std::string name;        ///< what its files are called: a file name, or a word for it
  std::string path;        ///< what calls name as their input
  std::size_t number = 0;  ///< in its mailbox, counted from 1; 0 for a file of its own
};

/// Writes each message that it is given as it stands into a folder under the out folder (deleted,
/// postponed, handoff, quarantine, archive, resend, delivered) and one line of JSON for the call
/// into "calls.jsonl" there: operation, message id, input, envelope, arguments, file, result,
/// error. Touches nothing else and sends nothing. Nothing is made before the first call.
///
/// File names come from the input's name (`safeFileName`); one that is taken gets a number. Any
/// number of adapters, in any threads and processes, may share an out folder; one adapter serves
/// one message on one thread. On failure no message file stays, the error is an AdapterError, and
/// the call is written down with it as far as that can be done. Files are whole but not flushed to
/// the device: nobody's mail depends on them.
class KAVI_API RecordingAdapter final : public OvIsAdapter {
 public:
  /// \param outFolder  made when it is missing, with mode 0700
  RecordingAdapter(std::string outFolder, RecordedInput input,
                   core::FileOps& ops = core::FileOps::system());
  /// \param inputName  the name and the path of the input
  RecordingAdapter(std::string outFolder, const std::string& inputName,
                   core::FileOps& ops = core::FileOps::system());

  int deleteMessage(unsigned int& error, OvMsgMailMessage* msg) override;
  int postponeMessage(unsigned int& error, OvMsgMailMessage* msg, unsigned char fromHour,
                      unsigned char fromMinute, unsigned char toHour,
                      unsigned char toMinute) override;
  int handoffMessage(unsigned int& error, OvMsgMailMessage* msg, const char* host,
                     int port) override;
  /// The path reported is that of the file in the out folder.
  int quarantineMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                        const char* directory, char (&path)[kQuarantinePathSize]) override;
  int archiveMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                     const char* directory, const char (&area)[kArchiveAreaNameSize]) override;
  int resendMessage(unsigned int& error, OvMsgMailMessage* msg, int flag) override;
  int deliverMessage(unsigned int& error, OvMsgMailMessage* msg) override;

  /// The calls so far, in order.
  const std::vector<RecordedCall>& calls() const { return calls_; }

 private:
  struct Request;
  template <class Describe>
  int run(unsigned int& error, const Request& request, Describe describe);

  std::string outFolder_;
  RecordedInput input_;
  core::FileOps& ops_;
  std::vector<RecordedCall> calls_;
};

}  // namespace host::delivery
