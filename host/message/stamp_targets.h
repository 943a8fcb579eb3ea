// Which parts of a message a text goes into.
#pragma once

#include <vector>

#include "library/platform/ov_msg_mail_message.h"

namespace host::message {

class Entity;
class Message;

/// The texts that are the body of \p message at \p place, in document order: of a
/// multipart/alternative the text and the HTML, of a multipart/related its root, of any other
/// multipart the first part that has such a text, or the last one at the end. Nested messages, what
/// is signed or encrypted, and attachments are not looked into, nor is what lies deeper than any
/// body does. Empty when there is no such text.
std::vector<Entity*> stampTargets(Message& message, OvMsgInsertPlace place);

}  // namespace host::message
