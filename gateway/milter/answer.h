// What the mail system is told about a message.
#pragma once

#include <string>
#include <string_view>

namespace gateway::milter {

/// One answer at the end of a message.
struct Answer {
  enum class Kind {
    Continue,  ///< it goes on, with the changes
    Discard,   ///< accepted, and not delivered
    Reject,    ///< refused for good
    TempFail,  ///< refused for now: the sender keeps it and tries again
  };

  Kind kind = Kind::TempFail;
  std::string text{};  ///< of a refusal

  static Answer goOn() { return {Kind::Continue, {}}; }
  static Answer discard() { return {Kind::Discard, {}}; }
  /// Names the message, so that whoever runs the mail system finds it in the log.
  /// \param queueId  empty when the mail system gave none
  static Answer tempFail(std::string_view queueId, std::string_view reason = {});
  static Answer reject(std::string_view text);

  const char* code() const { return kind == Kind::Reject ? "550" : "451"; }
  const char* enhancedCode() const { return kind == Kind::Reject ? "5.7.1" : "4.7.1"; }
  /// A word for the log.
  const char* name() const;
};

/// \p text as one line that libmilter and SMTP take: printable ASCII, at most 480 characters, and
/// every "%" doubled, because libmilter reads the text as a format.
std::string replyText(std::string_view text);

}  // namespace gateway::milter
