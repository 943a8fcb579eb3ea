#include "library/notification/notify_settings.h"

#include <cstring>

#include "library/framework/setting_readers.h"
#include "library/tokens/action_utils.h"

namespace library {

namespace {

constexpr char kNotification[] = "General-Notification";

// An empty entry ends the table.
constexpr char g_pop3_email[][64] = {"POP3FromLabel@*", "POP3ToLabel@*", "POP3_Mail_Sender",
                                     "POP3_Mail_Recipient", ""};

void readFlag(Kavi::GlobalSetting& settings, const char* key, const char* section, bool& flag) {
  int value = 0;
  if (readInt(settings, key, section, value)) {
    flag = value != 0;
  }
}

void restoreDefaults() {
  g_ignore_snmp_error = false;
  for (std::string* text :
       {&g_snmp_server_ip, &g_snmp_community_str, &g_snmp_version, &g_mail_from}) {
    text->clear();
  }
  g_skip_scan = false;
  g_hide_recipients = true;
  g_get_sender_from_MIME = false;
  g_scanner_id = 0;
  g_add_msg_id = false;
}

void readTrapSettings(Kavi::GlobalSetting& settings) {
  if (readString(settings, "SNMPServer", kNotification, g_snmp_server_ip)) {
    ActionUtils::L3("SNMP server address: %s", g_snmp_server_ip.c_str());
  } else {
    ActionUtils::L2(
        "No SNMP server address configured. SNMP Trap for notification will be ignored.");
  }
  if (readString(settings, "Community", kNotification, g_snmp_community_str)) {
    ActionUtils::L3("SNMP Community string: %s", g_snmp_community_str.c_str());
  } else {
    ActionUtils::L2("Missing community string, default is 'public'.");
  }
  if (readString(settings, "SNMPVersion", kNotification, g_snmp_version)) {
    ActionUtils::L3("SNMP snmp version string: %s", g_snmp_version.c_str());
  } else {
    ActionUtils::L2("Missing snmp version string, default is 'snmpv1'.");
  }
}

void readMailSettings(Kavi::GlobalSetting& settings) {
  if (readString(settings, "MailFrom", kNotification, g_mail_from)) {
    ActionUtils::L3("SMTP Notification Mail From:");
  } else {
    ActionUtils::L2("SMTP Notification Mail From is empty.");
  }
  readFlag(settings, "NotificationSkipScan", kNotification, g_skip_scan);
  readFlag(settings, "NotificationHideRecipients", kNotification, g_hide_recipients);
  readFlag(settings, "NotificationGetSenderFromMIME", kNotification, g_get_sender_from_MIME);
  int scannerId = 0;
  if (readInt(settings, "scanner_id", "kavi_manager", scannerId)) {
    g_scanner_id = static_cast<unsigned int>(scannerId);
  }
  readFlag(settings, "AddMsgIdInPolicyNotify", kNotification, g_add_msg_id);
}

}  // namespace

bool g_ignore_snmp_error = false;
std::string g_snmp_server_ip;
std::string g_snmp_community_str;
std::string g_snmp_version;
std::string g_mail_from;
bool g_skip_scan = false;
bool g_hide_recipients = true;
bool g_get_sender_from_MIME = false;
unsigned int g_scanner_id = 0;
bool g_add_msg_id = false;

void readNotifySettings(Kavi::GlobalSetting& settings) {
  restoreDefaults();
  readFlag(settings, "IgnoreSnmpError", "MessageModule", g_ignore_snmp_error);
  readTrapSettings(settings);
  readMailSettings(settings);
}

bool _is_pop3_email(const char* address) {
  if (address == nullptr) {
    return false;
  }
  for (const auto* entry = g_pop3_email; (*entry)[0] != '\0'; ++entry) {
    if (std::strstr(address, *entry) != nullptr) {
      return true;
    }
  }
  return false;
}

}  // namespace library
