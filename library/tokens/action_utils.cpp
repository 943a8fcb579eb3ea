#include "library/tokens/action_utils.h"

#include <cstdio>
#include <utility>

#include "library/framework/guard.h"
#include "library/framework/setting_readers.h"
#include "library/platform/log_msg.h"
#include "library/platform/res_bundle.h"

namespace {

constexpr char kDefaultCharset[] = "us-ascii";
constexpr char kGeneral[] = "general";
constexpr char kMessageModule[] = "MessageModule";
constexpr char kGeneralNotification[] = "General-Notification";
constexpr std::size_t kMaxLine = 2048;

std::string notifyTimeFormatFromResource(const std::string& locale) {
  return library::guarded("Kavi::OvResbundle::getString", std::string(), [&] {
    Kavi::OvResbundle bundle;
    bundle._init(Kavi::OvResbundle::GetResourceFileName(), "IDG_KAVI_UTIL", locale.c_str());
    std::string format;
    return bundle.getString("AU_NOTIFY_TIMEFORMAT", format) ? format : std::string();
  });
}

}  // namespace

std::string ActionUtils::s_defaultDstCharset = kDefaultCharset;
std::string ActionUtils::s_localCharset = kDefaultCharset;
bool ActionUtils::s_useMailCharset = false;
bool ActionUtils::s_useUtf8ForStamp = false;
std::string ActionUtils::s_useKaviLocaleForNotifyTime = "no";
std::string ActionUtils::s_notifyTimeFormat;
Kavi::LogMsg* ActionUtils::s_log = nullptr;

bool ActionUtils::init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log) {
  return library::guarded("ActionUtils::init", true, [&] {
    s_log = &log;
    readDefaultDstCharset(settings);
    readLocalCharset(settings);
    readUseMailCharset(settings);
    readUseUtf8ForStamp(settings);
    readNotifyTime(settings);
    return true;
  });
}

void ActionUtils::readDefaultDstCharset(Kavi::GlobalSetting& settings) {
  constexpr char kKey[] = "PreferredCharset";
  std::string charset = kDefaultCharset;
  const bool found = library::readString(settings, kKey, kGeneralNotification, charset);
  s_defaultDstCharset = std::move(charset);
  if (!found) {
    L2("Assume 'us-ascii' for default destination (preferred) charset. The value is missing in "
       "global setting, section: %s, value: %s",
       kGeneralNotification, kKey);
  } else {
    L2("Default destination (preferred) charset is %s.", getDefaultDstCharset());
  }
}

void ActionUtils::readLocalCharset(Kavi::GlobalSetting& settings) {
  constexpr char kKey[] = "DefaultSourceCharset";
  std::string charset = kDefaultCharset;
  const bool found = library::readString(settings, kKey, kMessageModule, charset);
  s_localCharset = std::move(charset);
  if (!found) {
    L2("Assume 'us-ascii' for default source charset. The value is missing in global setting, "
       "section: %s, value: %s",
       kMessageModule, kKey);
  } else {
    L2("Default source charset is %s.", getLocalCharset());
  }
}

void ActionUtils::readUseMailCharset(Kavi::GlobalSetting& settings) {
  constexpr char kKey[] = "UseMailCharsetAsDestinationCharset";
  s_useMailCharset = false;
  int value = 0;
  if (!library::readInt(settings, kKey, kMessageModule, value)) {
    L2("Use mail charset is off. The value is missing in global setting, section: %s, value: %s",
       kMessageModule, kKey);
    return;
  }
  s_useMailCharset = value != 0;
  if (s_useMailCharset) {
    L2("Use mail charset is on. Mail modifications will attempt to use its charset before default "
       "destination charset.");
  }
}

void ActionUtils::readUseUtf8ForStamp(Kavi::GlobalSetting& settings) {
  constexpr char kKey[] = "UseUTF8AsPreferCharsetForStamp";
  s_useUtf8ForStamp = false;
  int value = 0;
  if (!library::readInt(settings, kKey, kMessageModule, value)) {
    L2("Use UseUTF8AsPreferCharsetForStamp is off. The value is missing in global setting, "
       "section: %s, value: %s",
       kMessageModule, kKey);
    return;
  }
  s_useUtf8ForStamp = value != 0;
  if (s_useUtf8ForStamp) {
    L2("Use UseUTF8AsPreferCharsetForStamp is on.");
  }
}

void ActionUtils::readNotifyTime(Kavi::GlobalSetting& settings) {
  std::string locale;
  library::readString(settings, "locale", kGeneral, locale);
  const bool japanese = locale == "ja";

  std::string useKaviLocale = "no";
  if (japanese) {
    library::readString(settings, "useKaviLocaleForNotificationTime", kGeneral, useKaviLocale);
  }
  s_useKaviLocaleForNotifyTime = std::move(useKaviLocale);

  s_notifyTimeFormat = notifyTimeFormatFromResource(locale);
  if (s_notifyTimeFormat.empty()) {
    L2("ActionUtils: retrieve string from resource file failed");
    s_notifyTimeFormat = japanese ? "%Y/%m/%d %T" : "%m/%d/%Y %r";
  }
}

const char* ActionUtils::getDefaultDstCharset() { return s_defaultDstCharset.c_str(); }
const char* ActionUtils::getLocalCharset() { return s_localCharset.c_str(); }
bool ActionUtils::getUseMailCharsetFlag() { return s_useMailCharset; }
bool ActionUtils::getUseUTF8AsPreferForStampActionFlag() { return s_useUtf8ForStamp; }
const char* ActionUtils::getNotifyTimeFormat() { return s_notifyTimeFormat.c_str(); }
const char* ActionUtils::getUseKaviLocaleForNotifyTime() {
  return s_useKaviLocaleForNotifyTime.c_str();
}

void ActionUtils::write(int level, const char* format, std::va_list arguments) noexcept {
  try {
    if (s_log == nullptr || s_log->getLevel() < level) {
      return;
    }
    char line[kMaxLine] = {};
    // The callers start the list: NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
    (void)std::vsnprintf(line, sizeof line, format, arguments);
    s_log->write(level, "%s", line);
  } catch (...) {  // NOLINT(bugprone-empty-catch): a log that fails has nowhere to report it
  }
}

void ActionUtils::L1(const char* format, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  write(1, format, arguments);
  va_end(arguments);
}

void ActionUtils::L2(const char* format, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  write(2, format, arguments);
  va_end(arguments);
}

void ActionUtils::L3(const char* format, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  write(3, format, arguments);
  va_end(arguments);
}
