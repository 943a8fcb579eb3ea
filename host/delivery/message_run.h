// What the engine tells an adapter about the message that it works for.
#pragma once

#include <string>
#include <string_view>

#include "host/delivery/adapter_error.h"
#include "library/platform/api.h"
#include "library/platform/scan_token.h"
#include "library/platform/token_map.h"

class OvMsgMailMessage;

namespace host::delivery {

/// What the sender was told about a message in the end.
enum class FinalAnswer {
  Accepted,
  Rejected,
  Discarded,         ///< accepted, and not delivered
  TemporaryFailure,  ///< the sender keeps the message and tries again
};

/// The engine's side of an adapter that is made for one message. In order: `setPasses` and
/// `beginMessage` before the first action, `beginAction` before each, `finalAnswer` at the end. An
/// adapter that is told nothing works too: it files without rule and aging, and an effect asked for
/// twice happens twice. One thread at a time.
class KAVI_API MessageRun {
 public:
  virtual ~MessageRun() = default;

  /// How often the message came back for scanning: what it causes to be sent carries that on.
  virtual void setPasses(unsigned int passes) = 0;

  /// The adapter works for \p msg from now on.
  /// \param msg       as it was received: nothing has changed it or its envelope yet
  /// \param received  its bytes as they were received; they must stay until `finalAnswer`
  /// \param tokens    the message's token map; read whenever an action asks for something, so it
  ///   must stay until the last action has run
  /// \return not None when there is no memory; then no action may run.
  virtual AdapterError beginMessage(const OvMsgMailMessage& msg, std::string_view received,
                                    const Kavi::TokenMap<Kavi::ScanToken>& tokens) = 0;

  /// What the adapter is asked for from now on comes from this action.
  /// \param ruleId    id of the action's rule
  /// \param position  of the action in its rule, counted from 0
  /// \param setting   its settings string
  /// \return not None when there is no memory; then the action may not run.
  virtual AdapterError beginAction(unsigned int ruleId, unsigned int position,
                                   std::string_view setting) = 0;

  /// The sender got its answer. After any but a temporary failure the effects of this message are
  /// forgotten, so that the same message sent anew has its own; after a temporary failure they are
  /// kept, and a retry finds them done.
  /// \return not None when they could not be forgotten; the message's fate does not change by it.
  virtual AdapterError finalAnswer(FinalAnswer answer) = 0;

  /// The last failure of an operation of the present action in words, when there is more to say
  /// than its code does.
  virtual const std::string& lastFault() const = 0;

  /// Where the last operation that succeeded put the message, when it has a place that people may
  /// look at: an absolute path. Else empty.
  virtual std::string lastPlace() const { return {}; }
};

}  // namespace host::delivery
