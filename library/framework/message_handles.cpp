#include "library/framework/message_handles.h"

#include "library/framework/guard.h"

namespace library {

void MessageDeleter::operator()(OvMsgMailMessage* msg) const noexcept {
  guarded("OvMsg_DeleteMailMessage", false, [&] {
    OvMsg_DeleteMailMessage(msg);
    return true;
  });
}

void SessionDeleter::operator()(OvMsgMailSessionInfo* session) const noexcept {
  guarded("OvMsg_DeleteSessionInfo", false, [&] {
    OvMsg_DeleteSessionInfo(session);
    return true;
  });
}

void EncodedTextDeleter::operator()(char* text) const noexcept {
  guarded("OvMsg_FreeHeaderValue", false, [&] {
    OvMsg_FreeHeaderValue(text);
    return true;
  });
}

}  // namespace library
