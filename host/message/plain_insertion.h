// Putting lines into a plain text.
#pragma once

#include <cstddef>
#include <string_view>

#include "host/message/insertion.h"
#include "library/platform/ov_msg_mail_message.h"

namespace host::message {

/// What a plain text says about itself.
struct PlainText {
  std::string_view text;  ///< ASCII characters stand as themselves, others as any byte above
  std::size_t begin = 0;  ///< behind a byte order mark
  bool isFlowed = false;  ///< format=flowed (RFC 3676)
  bool needsEnd = false;  ///< nothing follows it in the mail: its last line ends in a break
};

/// Where and how \p lines (UTF-8, line breaks LF) go into a text: as lines of their own, at the top
/// or at the end. A text that ends in a line break ends in one afterwards, another does not. In a
/// flowed text every line is a fixed one (RFC 3676 section 4.2), space-stuffed where section 4.4
/// asks for it, and no line before it flows into it.
TextEdit plainInsertion(const PlainText& into, std::string_view lines, OvMsgInsertPlace place);

}  // namespace host::message
