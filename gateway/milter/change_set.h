// What a mail system has to be told so that a message becomes what the actions made of it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/milter/header_edits.h"
#include "host/message/envelope.h"
#include "host/message/message.h"

namespace gateway::milter {

/// The smallest set of changes; what did not change is not in it.
struct ChangeSet {
  std::vector<HeaderEdit> headers;         ///< to be applied in this order
  bool body = false;                       ///< the body changed: it is sent whole (see BodySink)
  std::optional<std::string> sender;       ///< the new one, without brackets
  std::vector<std::string> removed;        ///< recipients, without brackets
  std::vector<std::string> added;          ///< recipients, without brackets
  std::vector<std::string> names() const;  ///< for the log: "body", "add Subject", …

  bool isEmpty() const {
    return headers.empty() && !body && !sender && removed.empty() && added.empty();
  }
};

/// Compares \p message as it stands with what was received. Recipients are compared without regard
/// to case, and each counts once, as the mail system takes them out that way. Does not copy bodies.
/// \param before  the envelope as received
/// \return nothing when the protocol cannot say it: a line of the header that is no field.
std::optional<ChangeSet> changesOf(const host::message::Message& message,
                                   const host::message::Envelope& before);

/// Hands a message's body, which is everything behind the blank line, on in pieces.
class BodySink : public OvMsgSink {
 public:
  /// \param headerBytes  what stands in front of the blank line
  explicit BodySink(std::size_t headerBytes) : headerLeft_(headerBytes) {}

  bool write(const char* data, std::size_t size) final;
  /// Whether a blank line stood where it should have.
  bool isDivided() const { return blankLineState_ == State::Past; }

 protected:
  ~BodySink() = default;
  /// \return false to stop
  virtual bool writeBody(std::string_view piece) = 0;

 private:
  enum class State { Begin, BehindCr, Past, Wrong };

  std::size_t headerLeft_;
  State blankLineState_ = State::Begin;
};

/// The bytes of the header of \p message as it stands.
std::string headerOf(const host::message::Message& message);

}  // namespace gateway::milter
