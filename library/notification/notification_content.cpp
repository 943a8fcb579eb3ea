// The text of a notification and the message that it carries.
#include "library/framework/resource.h"
#include "library/namedobj/notify_area.h"
#include "library/notification/notification_mail.h"
#include "library/platform/ov_msg_entity.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_header.h"
#include "library/platform/text_utils.h"
#include "library/tokens/action_utils.h"

namespace library {

namespace {

constexpr char kMultipart[] = "multipart";
constexpr char kContentType[] = "Content-Type";
constexpr char kTransferEncoding[] = "Content-Transfer-Encoding";

// The charsets that the message library is told; of any other it reads the declaration.
const char* namedCharset(const std::string& charset) {
  return charset == "iso-2022-jp" || charset == "utf-8" ? charset.c_str() : nullptr;
}

// Whether the field is named \p name, which is taken with its end: the whole names are compared.
template <std::size_t Size>
bool isNamed(const OvMsgHeader& field, const char (&name)[Size]) {
  const char* const present = field.name();
  return present != nullptr && platform_icasencmp(present, name, Size) == 0;
}

bool saysMultipart(const OvMsgHeader& field) {
  const char* const value = field.value();
  return value != nullptr && platform_icasencmp(value, kMultipart, sizeof kMultipart - 1) == 0;
}

bool isMultipart(OvMsgEntity& root, int count) {
  for (int index = 0; index < count; ++index) {
    const OvMsgHeader* const field = root.headerAt(index);
    if (field != nullptr && isNamed(*field, kContentType) && saysMultipart(*field)) {
      return true;
    }
  }
  return false;
}

}  // namespace

bool NotificationMail::insertBody() {
  const Resource text = makeResource(texts_.body.empty() ? " " : texts_.body);
  if (text == nullptr) {
    ActionUtils::L1("Failed to create Resource Locator object before disclaimer insertion.");
    return false;
  }
  const int error =
      root_->insertTextBody(text.get(), "text/plain", namedCharset(texts_.charset), "base64");
  if (error != OVMSGERR::Ok) {
    ActionUtils::L1(
        "Failed to insert disclaimer message when composing notification message, error %u ('%s').",
        static_cast<unsigned int>(error), OVMSGERR::I2A(error));
    return false;
  }
  return true;
}

bool NotificationMail::attachScannedMessage() {
  const int error =
      root_->attachMessage(record_.attachModifiedMessage ? source_.msg : source_.original, -1);
  if (error != OVMSGERR::Ok) {
    ActionUtils::L1("Failed to insert scanning message into notification message, error %u ('%s').",
                    static_cast<unsigned int>(error), OVMSGERR::I2A(error));
    return false;
  }
  _remove_content_transfer_encoding_for_multipart_email(root_);
  return true;
}

void _remove_content_transfer_encoding_for_multipart_email(OvMsgEntity* root) {
  const int count = root != nullptr ? root->headerCount() : 0;
  if (count == 0 || !isMultipart(*root, count)) {
    return;
  }
  for (int index = 0; index < count; ++index) {
    const OvMsgHeader* const field = root->headerAt(index);
    if (field != nullptr && isNamed(*field, kTransferEncoding)) {
      root->removeHeaderAt(index);
      return;
    }
  }
}

}  // namespace library
