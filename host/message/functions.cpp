#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "host/message/charset.h"
#include "host/message/guard.h"
#include "host/message/message.h"
#include "host/message/session_info.h"
#include "host/message/text_as_attachment.h"
#include "library/platform/ov_msg_functions.h"

namespace {

using host::message::guarded;
using host::message::Message;

class MemoryResource final : public OvMsgResourceLocator {
 public:
  explicit MemoryResource(std::string bytes) : bytes_(std::move(bytes)) {}
  ~MemoryResource() override = default;
  const char* data() const override { return bytes_.data(); }
  std::size_t size() const override { return bytes_.size(); }

 private:
  const std::string bytes_;
};

}  // namespace

OvMsgMailMessage* OvMsg_CreateMailMessage() {
  return guarded<OvMsgMailMessage*>(nullptr, []() -> OvMsgMailMessage* {
    std::unique_ptr<Message> message = Message::create();
    const bool marked =
        message->firstEntity()->addHeader(-1, "Auto-Submitted", "auto-generated", nullptr);
    return marked ? message.release() : nullptr;
  });
}

void OvMsg_DeleteMailMessage(OvMsgMailMessage* msg) {
  delete static_cast<host::message::Message*>(msg);
}

OvMsgResourceLocator* OvMsg_CreateResourceLocator(const char* data, int kind, unsigned int length,
                                                  unsigned int capacity, int /*copy*/) {
  return guarded<OvMsgResourceLocator*>(nullptr, [&]() -> OvMsgResourceLocator* {
    if (kind != kOvMsgMemoryResource || capacity < length || (data == nullptr && length != 0)) {
      return nullptr;
    }
    return new MemoryResource(data == nullptr ? std::string() : std::string(data, length));
  });
}

void OvMsg_DeleteResourceLocator(OvMsgResourceLocator* locator) {
  delete static_cast<MemoryResource*>(locator);
}

void OvMsg_DeleteSessionInfo(OvMsgMailSessionInfo* session) {
  delete static_cast<host::message::SessionInfo*>(session);
}

void OvMsg_FreeHeaderValue(char* value) { std::free(value); }

void OvMsg_SetDisclaimerAttachmentAsDefault(int on) { host::message::setTextAsAttachment(on != 0); }

int OvMsg_CharsetConverterString(const char* text, const char* fromCharset, char* out,
                                 const char* toCharset, unsigned int& room, int flag,
                                 int /*level*/) {
  using host::message::OnMisfit;
  return host::message::guardedCode([&]() -> int {
    if (out == nullptr || room == 0) return OVMSGERR::InvalidArgument;
    *out = '\0';
    if (text == nullptr || fromCharset == nullptr || toCharset == nullptr) {
      return OVMSGERR::InvalidArgument;
    }
    std::string converted;
    const int code = host::message::convertCharset(
        text, fromCharset, toCharset, flag == 1 ? OnMisfit::Fail : OnMisfit::QuestionMark,
        OnMisfit::Fail, converted);
    if (code != OVMSGERR::Ok) return code;
    if (converted.size() >= room) return OVMSGERR::BufferTooSmall;
    std::memcpy(out, converted.data(), converted.size());
    out[converted.size()] = '\0';
    room = static_cast<unsigned int>(converted.size());
    return OVMSGERR::Ok;
  });
}
