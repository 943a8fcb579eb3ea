#include "host/message/text_as_attachment.h"

#include <atomic>

namespace host::message {

namespace {
std::atomic<bool> asAttachment{false};
}

void setTextAsAttachment(bool on) { asAttachment = on; }
bool isTextAsAttachment() { return asAttachment; }

}  // namespace host::message
