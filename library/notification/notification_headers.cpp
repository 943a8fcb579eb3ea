// The header fields of a notification.
#include <ctime>

#include "library/namedobj/notify_area.h"
#include "library/notification/mail_identity.h"
#include "library/notification/notification_mail.h"
#include "library/notification/notify.h"
#include "library/notification/notify_settings.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_header.h"
#include "library/tokens/action_utils.h"

namespace library {

namespace {

constexpr unsigned int kSubjectRoom = 1024;

}  // namespace

bool NotificationMail::writeHeaders() {
  OvMsgHeader* const type = ActNotify::_get_header(root_, "Content-Type");
  OvMsgHeader* const subject = ActNotify::_get_header(root_, "Subject");
  if (type == nullptr || subject == nullptr) {
    ActionUtils::L1("Failed to create Message object instance.");
    return false;
  }
  writeSubject(*subject);
  writeContentType(*type);
  writeRemainingHeaders();
  return true;
}

void NotificationMail::writeSubject(OvMsgHeader& subject) {
  char buffer[kSubjectRoom] = {};
  int error = 0;
  const char* const converted = msgu::conv(texts_.subject.c_str(), "utf-8", texts_.charset.c_str(),
                                           buffer, sizeof buffer, error, false);
  if (converted == nullptr || *converted == '\0') {
    error = subject.setValue(texts_.subject.c_str(), "utf-8");
  } else {
    if (texts_.charset == "us-ascii" && holdsEightBit(converted)) {
      texts_.charset = "utf-8";
    }
    error = texts_.charset == "utf-8" ? subject.setValue(texts_.subject.c_str(), "utf-8")
                                      : subject.setValue(converted, texts_.charset.c_str());
  }
  if (error != OVMSGERR::Ok) {
    ActionUtils::L1("Failed to set Subject string, error %u ('%s').",
                    static_cast<unsigned int>(error), OVMSGERR::I2A(error));
  }
}

void NotificationMail::writeContentType(OvMsgHeader& type) {
  type.setValue("text/html", nullptr);
  const int error = type.setParameter("charset", texts_.charset.c_str());
  if (error != OVMSGERR::Ok) {
    ActionUtils::L2("Cannot set charset to be '%s', error %u ('%s').", texts_.charset.c_str(),
                    static_cast<unsigned int>(error), OVMSGERR::I2A(error));
  }
  ActionUtils::L2("set Content-Transfer-Encoding as base64");
  msgu::setHeader(root_, "Content-Transfer-Encoding", "base64", nullptr);
}

void NotificationMail::writeRemainingHeaders() {
  msgu::setHeader(root_, "Date", mailDate(std::time(nullptr)).c_str(), nullptr);
  msgu::setHeader(root_, "MIME-Version", "1.0", nullptr);
  if (!to_.empty()) {
    msgu::setHeader(root_, "To", to_.c_str(), nullptr);
  }
  if (g_add_msg_id) {
    msgu::setHeader(root_, "Message-ID", messageId_.c_str(), nullptr);
  }
}

}  // namespace library
