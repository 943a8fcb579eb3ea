#include "library/tokens/value_functions.h"

#include <clocale>
#include <cstring>
#include <ctime>

#include "library/actions/disposition/quarantine.h"
#include "library/framework/kavi_action.h"
#include "library/framework/locale_handle.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_error.h"
#include "library/tokens/action_utils.h"
#include "library/tokens/token_replacement.h"

namespace library {

namespace {

using Kavi::ScanToken;

// The message library reads through pointers to non-const; it does not change the message.
OvMsgMailMessage* readable(const OvMsgMailMessage& msg) {
  return const_cast<OvMsgMailMessage*>(&msg);
}

bool actionList(Kavi::TokenMap<ScanToken>& tokens, ScanToken raw, std::string& value) {
  return KaviAction::CreateActionTokenString(tokens.valueOrEmpty(raw).c_str(), value);
}

using DateBuffer = char[256];

// \return the length; 0 for a text that is empty or does not fit.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // the format is a setting
std::size_t formatTime(DateBuffer& buffer, const char* format, const std::tm& time,
                       locale_t locale = nullptr) {
  return locale != nullptr ? strftime_l(buffer, sizeof buffer, format, &time, locale)
                           : std::strftime(buffer, sizeof buffer, format, &time);
}
#pragma GCC diagnostic pop

// The time as a Japanese reader writes it, in UTF-8. The locale is this call's own, so that other
// threads keep theirs; where it is not installed, the present one serves.
bool formatJapaneseTime(const std::tm& time, std::string& value) {
  DateBuffer buffer = {};
  const LocaleHandle japanese(newlocale(LC_TIME_MASK, "ja_JP.eucJP", nullptr));
  formatTime(buffer, "%c", time, japanese.get());
  int error = 0;
  if (msgu::conv(buffer, "euc-jp", "utf-8", value, error, false)) {
    return true;
  }
  ActionUtils::L1(
      "Cannot convert Japanese DATE string from EUC-JP to UTF8, error %u ('%s') with string: "
      "%.32s.",
      static_cast<unsigned int>(error), OVMSGERR::I2A(error), buffer);
  return false;
}

}  // namespace

bool usesKaviLocaleForTime() {
  return std::strcmp(ActionUtils::getUseKaviLocaleForNotifyTime(), "yes") == 0;
}

bool fnSubject(Kavi::TokenMap<ScanToken>& tokens, const OvMsgMailMessage& msg, std::string& value) {
  const char* hint = nullptr;
  if (ActionUtils::getUseMailCharsetFlag()) {
    hint = tokenValue(tokens, "%MAILCHARSET%", msg);
  }
  return msgu::getSubject(readable(msg), ActionUtils::getLocalCharset(), hint, value);
}

bool fnHeaders(Kavi::TokenMap<ScanToken>&, const OvMsgMailMessage& msg, std::string& value) {
  msgu::getHeaders(readable(msg), value);
  return true;
}

bool fnDateTime(Kavi::TokenMap<ScanToken>&, const OvMsgMailMessage&, std::string& value) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  if (localtime_r(&now, &local) == nullptr) {
    value.clear();
    return false;
  }
  if (usesKaviLocaleForTime() && formatJapaneseTime(local, value)) {
    return true;
  }
  DateBuffer buffer = {};
  if (formatTime(buffer, ActionUtils::getNotifyTimeFormat(), local) == 0) {
    formatTime(buffer, "%m/%d/%Y %r", local);
  }
  value = buffer;
  return true;
}

bool fnActions(Kavi::TokenMap<ScanToken>& tokens, const OvMsgMailMessage&, std::string& value) {
  return actionList(tokens, ScanToken::RawActions, value);
}

bool fnTActions(Kavi::TokenMap<ScanToken>& tokens, const OvMsgMailMessage&, std::string& value) {
  return actionList(tokens, ScanToken::RawTotalActions, value);
}

bool fnQAFilePath(Kavi::TokenMap<ScanToken>& tokens, const OvMsgMailMessage& msg,
                  std::string& value) {
  if (tokens.valueOrEmpty(ScanToken::QuarantineArea).empty()) {
    value.clear();
    return true;
  }
  return ActQuarantine::_genQuarantinePath(value, &msg);
}

bool fnDCharset(Kavi::TokenMap<ScanToken>&, const OvMsgMailMessage&, std::string& value) {
  value = ActionUtils::getDefaultDstCharset();
  return true;
}

bool fnXmailid(Kavi::TokenMap<ScanToken>&, const OvMsgMailMessage& msg, std::string& value) {
  const char* id = msgu::getXMailId(readable(msg));
  if (id == nullptr) {
    return false;
  }
  value = id;
  return true;
}

bool fnMCharset(Kavi::TokenMap<ScanToken>&, const OvMsgMailMessage& msg, std::string& value) {
  const char* charset = msgu::getCharset(readable(msg));
  value = charset != nullptr ? charset : "";
  return true;
}

}  // namespace library
