#include "tests/fakes/handles.h"

#include <cstdlib>
#include <cstring>

#include "library/platform/msgu.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_functions.h"
#include "tests/fakes/fault_plan.h"
#include "tests/fakes/message.h"
#include "tests/fakes/session.h"

namespace fakes {

Handles& Handles::instance() {
  static Handles handles;
  return handles;
}

void Handles::clear() {
  refusesMessages = makesRootlessMessages = refusesTexts = false;
  prepare = nullptr;
}

}  // namespace fakes

OvMsgMailMessage* OvMsg_CreateMailMessage() {
  auto& handles = fakes::Handles::instance();
  if (fakes::platformCallFails() || handles.refusesMessages) {
    return nullptr;
  }
  auto* const message = new fakes::Message(!handles.makesRootlessMessages);
  const fakes::Unswept unswept;
  ++handles.messages;
  handles.last = message;
  if (handles.prepare) {
    handles.prepare(*message);
  }
  return message;
}

void OvMsg_DeleteMailMessage(OvMsgMailMessage* msg) {
  if (msg != nullptr) {
    --fakes::Handles::instance().messages;
    fakes::Handles::instance().last = nullptr;
    delete static_cast<fakes::Message*>(msg);
  }
  fakes::platformCallFails();  // as the next two: may only throw, when all is done
}

void OvMsg_DeleteSessionInfo(OvMsgMailSessionInfo* session) {
  if (session != nullptr) {
    --fakes::Handles::instance().sessions;
    delete static_cast<fakes::Session*>(session);
  }
  fakes::platformCallFails();
}

void OvMsg_FreeHeaderValue(char* value) {
  if (value != nullptr) {
    --fakes::Handles::instance().texts;
    std::free(value);
  }
  fakes::platformCallFails();
}

namespace msgu {

char* genRfc2047(const char* text, const char* charset, int& error) {
  if (fakes::platformCallFails() || fakes::Handles::instance().refusesTexts) {
    error = OVMSGERR::UnencodableText;
    return nullptr;
  }
  const fakes::Unswept unswept;
  error = OVMSGERR::Ok;
  ++fakes::Handles::instance().texts;
  return strdup((std::string("=?") + charset + "?" + text + "?=").c_str());
}

}  // namespace msgu
