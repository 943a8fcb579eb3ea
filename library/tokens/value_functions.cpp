#include "library/tokens/value_functions.h"

#include <clocale>
#include <memory>
#include <type_traits>

#include "library/actions/disposition/quarantine.h"
#include "library/framework/kavi_action.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_error.h"
#include "library/tokens/action_utils.h"
#include "library/tokens/token_replacement.h"

namespace {

using Kavi::ScanToken;

constexpr std::size_t kDateBufferSize = 256;

// The message library reads through pointers to non-const; it does not change the message.
OvMsgMailMessage* readable(const OvMsgMailMessage& msg) {
  return const_cast<OvMsgMailMessage*>(&msg);
}

bool actionList(Kavi::TokenMap<ScanToken>& tokens, ScanToken raw, std::string& value) {
  return KaviAction::CreateActionTokenString(tokens.valueOrEmpty(raw).c_str(), value);
}

struct FreeLocale {
  void operator()(locale_t handle) const { freelocale(handle); }
};
using LocaleHandle = std::unique_ptr<std::remove_pointer_t<locale_t>, FreeLocale>;

// The time as a Japanese reader writes it, in UTF-8. The locale is the call's own, so that other
// threads keep theirs; where it is not installed, the present one serves.
bool formatJapaneseTime(const std::tm& time, std::string& value) {
  char buffer[kDateBufferSize] = {};
  const LocaleHandle japanese(newlocale(LC_TIME_MASK, "ja_JP.eucJP", nullptr));
  if (japanese) {
    strftime_l(buffer, sizeof buffer, "%c", &time, japanese.get());
  } else {
    std::strftime(buffer, sizeof buffer, "%c", &time);
  }
  int error = 0;
  if (msgu::conv(buffer, "euc-jp", "utf-8", value, error, false)) return true;
  ActionUtils::L1(
      "Cannot convert Japanese DATE string from EUC-JP to UTF8, error %u ('%s') with string: "
      "%.32s.",
      static_cast<unsigned int>(error), OVMSGERR::I2A(error), buffer);
  return false;
}

}  // namespace

bool fnSubject(Kavi::TokenMap<ScanToken>& tokens, const OvMsgMailMessage& msg, std::string& value) {
  const char* hint = nullptr;
  if (ActionUtils::getUseMailCharsetFlag()) {
    hint = token_replacement::valueOf(tokens, "%MAILCHARSET%", msg);
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
  if (ActionUtils::usesJapaneseTime() && formatJapaneseTime(local, value)) return true;
  char buffer[kDateBufferSize] = {};
  if (std::strftime(buffer, sizeof buffer, ActionUtils::getNotifyTimeFormat(), &local) == 0) {
    std::strftime(buffer, sizeof buffer, "%m/%d/%Y %r", &local);
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
  } else {
    ActQuarantine::_genQuarantinePath(value, &msg);
  }
  return true;
}

bool fnDCharset(Kavi::TokenMap<ScanToken>&, const OvMsgMailMessage&, std::string& value) {
  value = ActionUtils::getDefaultDstCharset();
  return true;
}

bool fnXmailid(Kavi::TokenMap<ScanToken>&, const OvMsgMailMessage& msg, std::string& value) {
  const char* id = msgu::getXMailId(readable(msg));
  if (id == nullptr) return false;
  value = id;
  return true;
}

bool fnMCharset(Kavi::TokenMap<ScanToken>&, const OvMsgMailMessage& msg, std::string& value) {
  const char* charset = msgu::getCharset(readable(msg));
  value = charset != nullptr ? charset : "";
  return true;
}
