// Putting a text into the body of a message.
#pragma once

#include <string_view>

#include "library/platform/ov_msg_mail_message.h"

namespace host::message {

class Message;

/// A text that is to be shown with a message.
struct InsertedText {
  OvMsgInsertPlace place;
  std::string_view text;
  std::string_view sourceCharset;
  std::string_view destinationCharset;  ///< empty leaves the choice
};

/// Puts \p wanted into every text of the body, or, where the message has none that can be changed,
/// into a text part beside it; as an attachment when `isTextAsAttachment`. docs/stamps.md has the
/// rules.
/// \return 0 or an OVMSGERR code; then, and when it throws, the message is as it was.
int insertText(Message& message, const InsertedText& wanted);

}  // namespace host::message
