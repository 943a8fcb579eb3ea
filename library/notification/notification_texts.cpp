#include "library/notification/notification_texts.h"

#include <algorithm>

#include "library/namedobj/notify_area.h"
#include "library/notification/trap.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_error.h"
#include "library/tokens/action_utils.h"

namespace library {

namespace {

bool fillIn(const std::string& text, Kavi::TokenMap<Kavi::ScanToken>& tokens,
            const OvMsgMailMessage* msg, std::string& filled) {
  if (msg == nullptr) {
    filled = text;
    return true;
  }
  return ActionUtils::replaceTokens(tokens, text, *msg, filled);
}

void convertBody(NotificationTexts& texts) {
  std::string converted;
  int error = 0;
  if (msgu::conv(texts.body.c_str(), "utf-8", texts.charset.c_str(), converted, error, false)) {
    texts.body.swap(converted);
  } else {
    ActionUtils::L1(
        "Cannot convert from charset 'utf-8' to '%s', error %u ('%s') with string: %.32s.",
        texts.charset.c_str(), static_cast<unsigned int>(error), OVMSGERR::I2A(error),
        texts.body.c_str());
    texts.charset = "utf-8";
  }
  if (texts.charset == "us-ascii" && holdsEightBit(texts.body)) {
    texts.charset = "utf-8";
  }
}

}  // namespace

bool holdsEightBit(const std::string& text) {
  return std::any_of(text.begin(), text.end(),
                     [](char byte) { return static_cast<unsigned char>(byte) >= 0x80; });
}

bool makeNotificationTexts(const uiNotifyArea& record, Kavi::TokenMap<Kavi::ScanToken>& tokens,
                           const OvMsgMailMessage* msg, NotificationTexts& texts) {
  texts.charset = ActionUtils::getDefaultDstCharset();
  if (!fillIn(record.subject, tokens, msg, texts.subject)) {
    return false;
  }
  if (texts.subject.empty()) {
    texts.subject = record.subject;
  }
  if (wantsTrap(record) && !fillIn(record.trapMessage, tokens, msg, texts.trap)) {
    return false;
  }
  if (!fillIn(record.body, tokens, msg, texts.body)) {
    return false;
  }
  convertBody(texts);
  return true;
}

}  // namespace library
