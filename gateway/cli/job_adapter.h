// The adapters that a command runs its messages with: none of them acts but that of `--deliver`.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gateway/cli/output_folder.h"
#include "gateway/engine/engine.h"
#include "host/delivery/message_run.h"
#include "host/message/message.h"
#include "host/store/effect_ledger.h"
#include "library/platform/is_adapter.h"

namespace gateway::cli {

/// Something that an action asked of the adapter.
struct AdapterCall {
  std::string operation;
  /// Where the message was put: relative to the output folder, or absolute; may be empty.
  std::string file;
  unsigned int error = 0;
  std::string reason;  ///< of an error
  /// The envelope that the message had then.
  std::string sender;
  std::vector<std::string> recipients;
};

/// The calls that \p outcome tells of, in order.
std::vector<AdapterCall> callsOf(const engine::Outcome& outcome);

/// The adapter of one message.
class JobAdapter {
 public:
  virtual ~JobAdapter() = default;

  virtual OvIsAdapter& adapter() = 0;
  /// What the engine tells the adapter; null when it needs to be told nothing.
  virtual host::delivery::MessageRun* messageRun() { return nullptr; }
  /// The engine is done with the message.
  /// \param calls  all that it made; each receives where the message was put
  /// \return an error text, empty for success.
  virtual std::string finish(std::vector<AdapterCall>& calls) = 0;
  /// Once it is done: the message as the ledger of effects knows it, when it waits for its answer.
  virtual std::optional<host::store::Digest> unanswered() { return std::nullopt; }
};

/// Makes adapters; from several threads at once.
class JobAdapters {
 public:
  virtual ~JobAdapters() = default;
  /// \param message  as it came, with its envelope
  /// \param input    where it comes from
  virtual std::unique_ptr<JobAdapter> make(const host::message::Message& message,
                                           const InputMessage& input) = 0;
};

/// For runs that leave no files behind.
class DryAdapters final : public JobAdapters {
 public:
  std::unique_ptr<JobAdapter> make(const host::message::Message& message,
                                   const InputMessage& input) override;
};

/// For runs that write what would be sent or filed into the output folder.
class RecordingAdapters final : public JobAdapters {
 public:
  /// \param out  borrowed
  explicit RecordingAdapters(const OutputFolder& out) : out_(out) {}
  std::unique_ptr<JobAdapter> make(const host::message::Message& message,
                                   const InputMessage& input) override;

 private:
  const OutputFolder& out_;
};

}  // namespace gateway::cli
