// Notes what a message says of its reprocessing whenever an action hands it over.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/delivery/message_run.h"
#include "library/platform/is_adapter.h"

namespace gateway::engine {

/// A mail of an action's own making, as it was handed over.
struct OwnMail {
  std::string sender;
  std::vector<std::string> recipients;
  std::string bytes;
};

/// One call on the adapter, with the reprocessing fields of the message as it was handed over.
struct HandOver {
  std::string operation;  ///< "delete", "postpone", "handoff", "quarantine", ...
  std::string rules;      ///< ids separated by blanks; empty when there is no such field
  std::string type;       ///< the word of the action that wrote them
  std::string sender{};   ///< the envelope that the message had
  std::vector<std::string> recipients{};
  unsigned int error = 0;         ///< an AdapterError; 0 for success
  std::string place{};            ///< where the adapter stored the message, if it says so
  std::optional<OwnMail> mail{};  ///< where those are kept
};

/// Passes every call on. One per message.
class WatchedAdapter final : public OvIsAdapter {
 public:
  /// \param adapter  borrowed
  /// \param scanned  every other message is an action's own, and is kept; null keeps none.
  /// \param run      the same adapter, asked where it put a message; borrowed, may be null
  explicit WatchedAdapter(OvIsAdapter& adapter, const OvMsgMailMessage* scanned = nullptr,
                          const host::delivery::MessageRun* run = nullptr)
      : adapter_(adapter), scanned_(scanned), run_(run) {}

  int deleteMessage(unsigned int& error, OvMsgMailMessage* msg) override;
  int postponeMessage(unsigned int& error, OvMsgMailMessage* msg, unsigned char fromHour,
                      unsigned char fromMinute, unsigned char toHour,
                      unsigned char toMinute) override;
  int handoffMessage(unsigned int& error, OvMsgMailMessage* msg, const char* host,
                     int port) override;
  int quarantineMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                        const char* directory, char (&path)[kQuarantinePathSize]) override;
  int archiveMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                     const char* directory, const char (&area)[kArchiveAreaNameSize]) override;
  int resendMessage(unsigned int& error, OvMsgMailMessage* msg, int flag) override;
  int deliverMessage(unsigned int& error, OvMsgMailMessage* msg) override;

  /// Every hand-over so far, in order.
  const std::vector<HandOver>& handOvers() const { return handOvers_; }

 private:
  template <class Call>
  int watch(const char* operation, unsigned int& error, OvMsgMailMessage* msg, Call call);

  OvIsAdapter& adapter_;
  const OvMsgMailMessage* scanned_;
  const host::delivery::MessageRun* run_;
  std::vector<HandOver> handOvers_;
};

}  // namespace gateway::engine
