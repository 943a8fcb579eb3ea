// Which parts of a message a text goes into.
#pragma once

#include <vector>

#include "library/platform/ov_msg_mail_message.h"

namespace host::message {

class Entity;
class Message;

/// What is the body of \p message at \p place, in the order of reading: of a multipart/alternative
/// the text and the HTML, of a multipart/related its root, of any other multipart the first part
/// that has a body, or the last one at the end. A signed or encrypted part is named as a whole.
/// Nested messages and attachments are not looked into, nor is what lies deeper than any body does.
std::vector<Entity*> stampTargets(Message& message, OvMsgInsertPlace place);

}  // namespace host::message
