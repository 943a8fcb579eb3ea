#include "gateway/engine/settings_check.h"

#include <limits>

#include "host/core/ini_settings.h"
#include "host/core/section_reader.h"
#include "host/message/charset.h"
#include "host/trap/trap_server.h"

namespace gateway::engine {
namespace {

using host::core::SectionReader;

/// Blank lines in front of a stamp: more than anybody wants, and less than memory holds.
constexpr int kMostBlankLines = 1000;

/// What a value has to be.
enum class Kind { Flag, Number, BlankLines, Level, Format, Target, Charset, Path, TrapServer };

struct Rule {
  const char* section;
  const char* key;
  Kind kind;
};

constexpr Rule kRules[] = {
    {"log", "Level", Kind::Level},
    {"log", "Format", Kind::Format},
    {"log", "Target", Kind::Target},
    {"general", "queue_quarantine", Kind::Path},
    {"general", "queue_archive", Kind::Path},
    {"general", "NumOfBlankLineBeforeStampMessage", Kind::BlankLines},
    {"MessageModule", "DefaultSourceCharset", Kind::Charset},
    {"MessageModule", "DisclaimerLineLimit", Kind::Number},
    {"MessageModule", "IgnoreInsertError", Kind::Flag},
    {"MessageModule", "IgnoreSnmpError", Kind::Flag},
    {"MessageModule", "InsertStampAsAttachment", Kind::Flag},
    {"MessageModule", "PreferCharsetAsUTF8", Kind::Flag},
    {"MessageModule", "RemoveKaviMsgID", Kind::Flag},
    {"MessageModule", "TagDirectly", Kind::Flag},
    {"MessageModule", "TagNotEncoding", Kind::Flag},
    {"MessageModule", "UseMailCharsetAsDestinationCharset", Kind::Flag},
    {"MessageModule", "UseUTF8AsPreferCharsetForStamp", Kind::Flag},
    {"General-Notification", "AddMsgIdInPolicyNotify", Kind::Flag},
    {"General-Notification", "NotificationGetSenderFromMIME", Kind::Flag},
    {"General-Notification", "NotificationHideRecipients", Kind::Flag},
    {"General-Notification", "NotificationSkipScan", Kind::Flag},
    {"General-Notification", "PreferredCharset", Kind::Charset},
    {"General-Notification", "SNMPServer", Kind::TrapServer},
    {"kavi_manager", "scanner_id", Kind::Number},
};

bool isNumberUpTo(int most, const std::string& text) {
  int number = 0;
  return host::core::parseInt(text, number) && number <= most;
}

/// What is wrong with a text; empty when nothing is.
std::string faultOf(Kind kind, const std::string& text) {
  constexpr int kMost = std::numeric_limits<int>::max();
  switch (kind) {
    case Kind::Flag:
      return isNumberUpTo(kMost, text) ? "" : "is no number (write 1 for yes, 0 for no)";
    case Kind::Number:
      return isNumberUpTo(kMost, text) ? "" : "is no number up to " + std::to_string(kMost);
    case Kind::BlankLines:
      return isNumberUpTo(kMostBlankLines, text)
                 ? ""
                 : "is no number up to " + std::to_string(kMostBlankLines);
    case Kind::Level:
      return text.size() == 1 && text >= "0" && text <= "3" ? "" : "is not 0, 1, 2 or 3";
    case Kind::Format:
      return text == "text" || text == "json" ? "" : "is neither text nor json";
    case Kind::Target:
      return text == "stderr" || text == "syslog" ? "" : "is neither stderr nor syslog";
    case Kind::Charset:
      return host::message::isKnownCharset(text)
                 ? ""
                 : "is no charset that is known here (write its IANA name, such as utf-8)";
    case Kind::Path:
      return text.front() == '/' ? "" : "is no absolute path (write one that begins with \"/\")";
    case Kind::TrapServer:
      return host::trap::parseTrapServer(text)
                 ? ""
                 : "is no server (write host, host:port or [IPv6]:port)";
  }
  return {};
}

}  // namespace

std::string settingsFaults(Kavi::GlobalSetting& settings) {
  std::string faults;
  for (const Rule& rule : kRules) {
    SectionReader section(settings, rule.section, faults);
    std::string text;
    if (!section.text(rule.key, text) || text.empty()) continue;
    const std::string fault = faultOf(rule.kind, text);
    if (!fault.empty()) section.fault(rule.key, std::string("'").append(text).append("' ") + fault);
  }
  return faults;
}

}  // namespace gateway::engine
