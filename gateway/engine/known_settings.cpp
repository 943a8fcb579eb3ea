#include "gateway/engine/known_settings.h"

#include <algorithm>
#include <span>
#include <utility>

#include "gateway/policy/suggest.h"

namespace gateway::engine {
namespace {

constexpr std::string_view kGeneral[] = {"queue_quarantine",
                                         "queue_archive",
                                         "queue_notify",
                                         "kavi_home",
                                         "locale",
                                         "useKaviLocaleForNotificationTime",
                                         "NumOfBlankLineBeforeStampMessage"};
constexpr std::string_view kMessageModule[] = {"RemoveKaviMsgID",
                                               "DefaultSourceCharset",
                                               "UseMailCharsetAsDestinationCharset",
                                               "UseUTF8AsPreferCharsetForStamp",
                                               "PreferCharsetAsUTF8",
                                               "IgnoreInsertError",
                                               "DisclaimerLineLimit",
                                               "InsertStampAsAttachment",
                                               "TagDirectly",
                                               "TagNotEncoding",
                                               "IgnoreSnmpError"};
constexpr std::string_view kNotification[] = {"PreferredCharset",
                                              "SNMPServer",
                                              "Community",
                                              "SNMPVersion",
                                              "MailFrom",
                                              "NotificationSkipScan",
                                              "NotificationHideRecipients",
                                              "NotificationGetSenderFromMIME",
                                              "AddMsgIdInPolicyNotify"};
constexpr std::string_view kManager[] = {"scanner_id"};
constexpr std::string_view kLog[] = {"Level", "Format", "Target"};
constexpr std::string_view kStore[] = {"location"};
constexpr std::string_view kMilter[] = {
    "policy",         "socket",           "socket_mode",         "user",
    "beyond_limits",  "max_message_mb",   "max_header_fields",   "max_header_kb",
    "max_recipients", "max_parts",        "max_depth",           "memory_kb",
    "metrics_port",   "deadline_seconds", "reinjection_listener"};
constexpr std::string_view kDelivery[] = {"state_folder",
                                          "hello_name",
                                          "scan_host",
                                          "scan_port",
                                          "scan_tls",
                                          "scan_verify",
                                          "scan_ca_file",
                                          "scan_user",
                                          "scan_password_file",
                                          "plain_host",
                                          "plain_port",
                                          "plain_tls",
                                          "plain_verify",
                                          "plain_ca_file",
                                          "plain_user",
                                          "plain_password_file",
                                          "handoff_tls",
                                          "handoff_verify",
                                          "handoff_ca_file",
                                          "handoff_user",
                                          "handoff_password_file",
                                          "connect_timeout_seconds",
                                          "command_timeout_seconds",
                                          "total_timeout_seconds",
                                          "handoff_deadline_seconds",
                                          "retry_first_seconds",
                                          "retry_longest_seconds",
                                          "give_up_seconds",
                                          "seal_key_file"};
constexpr std::string_view kHost[] = {"tls", "verify", "ca_file", "user", "password_file"};

struct Section {
  std::string_view name;
  std::span<const std::string_view> keys;
};

constexpr Section kSections[] = {{"general", kGeneral},
                                 {"MessageModule", kMessageModule},
                                 {"General-Notification", kNotification},
                                 {"kavi_manager", kManager},
                                 {"log", kLog},
                                 {"store", kStore},
                                 {"milter", kMilter},
                                 {"delivery", kDelivery}};
constexpr Section kHandOffHost = {"delivery HOST:PORT", kHost};
constexpr std::string_view kHostPrefix = "delivery ";

std::string lowered(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return out;
}

const Section* findSection(std::string_view name) {
  const std::string wanted = lowered(name);
  if (wanted.starts_with(kHostPrefix)) return &kHandOffHost;
  for (const Section& section : kSections) {
    if (lowered(section.name) == wanted) return &section;
  }
  return nullptr;
}

bool hasKey(const Section& section, std::string_view key) {
  const std::string wanted = lowered(key);
  return std::any_of(section.keys.begin(), section.keys.end(),
                     [&](std::string_view known) { return lowered(known) == wanted; });
}

/// What to write instead of \p word, in brackets: the known one that comes close, or all.
std::string remedy(const std::string& word, const std::vector<std::string_view>& known) {
  std::vector<std::string> folded;
  folded.reserve(known.size());
  for (const std::string_view name : known) folded.push_back(lowered(name));
  const std::string_view meant =
      policy::closestTo(word, std::vector<std::string_view>(folded.begin(), folded.end()));
  for (std::size_t i = 0; i < known.size() && !meant.empty(); ++i) {
    if (folded[i] == meant) return "(did you mean '" + std::string(known[i]) + "'?)";
  }
  return policy::remedyFor(word, known);
}

std::string remedyForKey(const Section& section, const std::string& key) {
  for (const Section& other : kSections) {
    if (hasKey(other, key)) return "(it belongs into section '" + std::string(other.name) + "')";
  }
  return remedy(key, {section.keys.begin(), section.keys.end()});
}

std::string lineOf(const host::core::IniName& name) { return "line " + std::to_string(name.line); }

}  // namespace

bool isKnownSetting(std::string_view section, std::string_view key) {
  const Section* found = findSection(section);
  return found != nullptr && hasKey(*found, key);
}

std::vector<std::string> unknownSettings(const host::core::IniSettings& settings) {
  std::vector<std::string> unknown;
  std::vector<std::string_view> sections;
  for (const Section& section : kSections) sections.push_back(section.name);
  std::string reported;
  for (const host::core::IniName& name : settings.names()) {
    const Section* section = findSection(name.section);
    if (section != nullptr && hasKey(*section, name.key)) continue;
    if (section != nullptr) {
      unknown.push_back(lineOf(name) + ": unknown key " + policy::inQuotes(name.key) +
                        " in section '" + std::string(section->name) + "' " +
                        remedyForKey(*section, name.key));
      continue;
    }
    // Once for each section: its keys come one behind the other.
    if (!unknown.empty() && reported == name.section) continue;
    reported = name.section;
    unknown.push_back(lineOf(name) + ": unknown section " + policy::inQuotes(name.section) + " " +
                      remedy(name.section, sections));
  }
  return unknown;
}

std::vector<std::string> trailingComments(host::core::IniSettings& settings) {
  std::vector<std::string> found;
  for (const host::core::IniName& name : settings.names()) {
    std::string value;
    settings.getString(name.key.c_str(), value, name.section.c_str(), 0);
    for (std::size_t i = 1; i < value.size(); ++i) {
      const bool begins = value[i] == '#' || value[i] == ';';
      if (!begins || (value[i - 1] != ' ' && value[i - 1] != '\t')) continue;
      found.push_back(lineOf(name) + ": what stands behind the value of " +
                      policy::inQuotes(name.key) + ", from '" + value[i] +
                      "' on, is taken as a part of it (put comments on lines of their own)");
      break;
    }
  }
  return found;
}

std::vector<std::string> doubtfulSettings(host::core::IniSettings& settings) {
  std::vector<std::string> doubts = unknownSettings(settings);
  for (std::string& comment : trailingComments(settings)) doubts.push_back(std::move(comment));
  return doubts;
}

}  // namespace gateway::engine
