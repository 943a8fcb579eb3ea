#include "gateway/policy/action_registry.h"

#include <algorithm>
#include <cstdio>

#include "gateway/policy/delivery_codecs.h"
#include "gateway/policy/modification_codecs.h"
#include "gateway/policy/settings_object.h"
#include "gateway/policy/suggest.h"
#include "library/actions/disposition/archive.h"
#include "library/actions/disposition/delete.h"
#include "library/actions/disposition/encryption.h"
#include "library/actions/disposition/handoff.h"
#include "library/actions/disposition/postpone.h"
#include "library/actions/disposition/quarantine.h"
#include "library/actions/disposition/readdress.h"
#include "library/actions/disposition/virus_clean.h"
#include "library/actions/modification/delete_attachment.h"
#include "library/actions/modification/stamp.h"
#include "library/actions/modification/tag_subject.h"
#include "library/actions/modification/x_header.h"
#include "library/notification/feedback.h"
#include "library/notification/notify.h"

namespace gateway::policy {
namespace {

template <class Action>
std::unique_ptr<KaviAction> make() {
  return std::make_unique<Action>();
}

// --- Actions without settings ---

template <class Settings>
bool encodeNothing(const Node& value, std::string& setting, const FaultSink& fault) {
  if (value.kind != Node::Kind::Null) {
    fault(value.line, "takes no value (write its name alone)");
    return false;
  }
  setting = Settings().serialize();
  return true;
}

template <class Settings>
bool decodeNothing(const std::string& setting, std::string& value) {
  value.clear();
  return setting == Settings().serialize();
}

// --- postpone ---

constexpr int kLastHour = 23;
constexpr int kLastMinute = 59;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// "8:30" or "08:30", 00:00 to 23:59.
bool parseTimeOfDay(std::string_view text, int& hour, int& minute) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos || colon == 0 || colon > 2) return false;
  if (text.size() != colon + 3) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (i != colon && !isDigit(text[i])) return false;
  }
  hour = text[0] - '0';
  if (colon == 2) hour = hour * 10 + (text[1] - '0');
  minute = (text[colon + 1] - '0') * 10 + (text[colon + 2] - '0');
  return hour <= kLastHour && minute <= kLastMinute;
}

bool encodePostpone(const Node& value, std::string& setting, const FaultSink& fault) {
  uiPostpone settings;
  if (value.kind != Node::Kind::Scalar ||
      !parseTimeOfDay(value.text, settings.hour, settings.min)) {
    fault(value.line, "needs a time of the day, not " + inQuotes(value.text) +
                          " (write hours and minutes, 00:00 to 23:59: \"08:30\")");
    return false;
  }
  setting = settings.serialize();
  return true;
}

bool decodePostpone(const std::string& setting, std::string& value) {
  uiPostpone settings;
  if (!constructFrom(settings, setting) || settings.hour < 0 || settings.hour > kLastHour ||
      settings.min < 0 || settings.min > kLastMinute) {
    return false;
  }
  char text[32];
  static_cast<void>(std::snprintf(text, sizeof text, "%02d:%02d", settings.hour, settings.min));
  value = text;
  return true;
}

const std::string kFeedbackSummary =
    std::string("Mails the attachments that made the rule match, as samples, to ") +
    ActPackwatch::feedbackAddress() + ".";

const ActionSpec kActions[] = {
    {.name = "archive",
     .type = KaviAction::Archive,
     .disposes = false,
     .doesNothing = false,
     .changesMessage = false,
     .value = "AREA",
     .example = "archive: journal",
     .summary = "Keeps a copy in an archive area; the message goes on.",
     .make = make<ActArchive>,
     .encode = encodeObjectId,
     .decode = decodeObjectId,
     .objectType = KaviNamedObj::ArchiveAreaType},
    {.name = "bcc",
     .type = KaviAction::Bcc,
     .disposes = false,
     .doesNothing = false,
     .changesMessage = true,
     .value = "ADDRESSES",
     .example = "bcc: [audit@example.org]",
     .summary = "Adds recipients whom nobody sees.",
     .make = make<ActBcc>,
     .encode = encodeBcc,
     .decode = decodeRecipients,
     .doubt = doubtRecipients},
    {.name = "delete",
     .type = KaviAction::Delete,
     .disposes = true,
     .doesNothing = false,
     .changesMessage = false,
     .value = "",
     .example = "delete",
     .summary = "Deletes the message: nobody receives it.",
     .make = make<ActDelete>,
     .encode = encodeNothing<uiDelete>,
     .decode = decodeNothing<uiDelete>},
    {.name = "delete_attachments",
     .type = KaviAction::DeleteAttachment,
     .disposes = false,
     .doesNothing = false,
     .changesMessage = true,
     .value = "WHICH",
     .example = "delete_attachments: matching",
     .summary = "Removes the attachments that made the rule match, or all of them.",
     .make = make<ActDeleteAttachment>,
     .encode = encodeDeleteAttachments,
     .decode = decodeDeleteAttachments},
    {.name = "feedback",
     .type = KaviAction::Packwatch,
     .disposes = false,
     .doesNothing = false,
     .changesMessage = false,
     .value = "",
     .example = "feedback",
     .summary = kFeedbackSummary,
     .make = make<ActPackwatch>,
     .encode = encodeNothing<uiPackwatch>,
     .decode = decodeNothing<uiPackwatch>},
    {.name = "handoff",
     .type = KaviAction::Handoff,
     .disposes = true,
     .doesNothing = false,
     .changesMessage = false,
     .value = "HOST:PORT",
     .example = "handoff: \"mail.example.org:25\"",
     .summary = "Passes the message to another mail host.",
     .make = make<ActHandoff>,
     .encode = encodeHandoff,
     .decode = decodeHandoff},
    {.name = "ibe_decrypt",
     .type = KaviAction::IBEDecrypt,
     .disposes = false,
     .doesNothing = true,
     .changesMessage = false,
     .value = "",
     .example = "ibe_decrypt",
     .summary = "Does nothing; kept for policies that name it.",
     .make = make<ActIBEDecrypt>,
     .encode = encodeNothing<ActIBEDecrypt>,
     .decode = decodeNothing<ActIBEDecrypt>},
    {.name = "ibe_encrypt",
     .type = KaviAction::IBEEncrypt,
     .disposes = false,
     .doesNothing = true,
     .changesMessage = false,
     .value = "",
     .example = "ibe_encrypt",
     .summary = "Does nothing; kept for policies that name it.",
     .make = make<ActIBEEncrypt>,
     .encode = encodeNothing<uiIBEEncrypt>,
     .decode = decodeNothing<uiIBEEncrypt>},
    {.name = "ibe_reencrypt",
     .type = KaviAction::IBEReEncrypt,
     .disposes = false,
     .doesNothing = true,
     .changesMessage = false,
     .value = "",
     .example = "ibe_reencrypt",
     .summary = "Does nothing; kept for policies that name it.",
     .make = make<ActIBEReEncrypt>,
     .encode = encodeNothing<uiIBEEncrypt>,
     .decode = decodeNothing<uiIBEEncrypt>},
    {.name = "notify",
     .type = KaviAction::Notify,
     .disposes = false,
     .doesNothing = false,
     .changesMessage = false,
     .value = "NOTIFICATIONS",
     .example = "notify: tell-admin",
     .summary = "Sends a mail, an SNMP trap or both, as notifications say.",
     .make = make<ActNotify>,
     .encode = encodeObjectIds,
     .decode = decodeObjectId,
     .objectType = KaviNamedObj::NotificationType,
     .takesSeveral = true},
    {.name = "postpone",
     .type = KaviAction::Postpone,
     .disposes = true,
     .doesNothing = false,
     .changesMessage = false,
     .value = "HH:MM",
     .example = "postpone: \"08:30\"",
     .summary = "Holds the message back until that time of the day.",
     .make = make<ActPostpone>,
     .encode = encodePostpone,
     .decode = decodePostpone},
    {.name = "quarantine",
     .type = KaviAction::Quarantine,
     .disposes = true,
     .doesNothing = false,
     .changesMessage = false,
     .value = "AREA",
     .example = "quarantine: virus",
     .summary = "Files the message in a quarantine area instead of delivering it.",
     .make = make<ActQuarantine>,
     .encode = encodeObjectId,
     .decode = decodeObjectId,
     .objectType = KaviNamedObj::QuarantineAreaType},
    {.name = "readdress",
     .type = KaviAction::Readdress,
     .disposes = true,
     .doesNothing = false,
     .changesMessage = false,
     .value = "ADDRESSES",
     .example = "readdress: [postmaster@example.org]",
     .summary = "Sends the message to other recipients, through scanning again.",
     .make = make<ActReaddress>,
     .encode = encodeReaddress,
     .decode = decodeRecipients,
     .doubt = doubtRecipients},
    {.name = "stamp",
     .type = KaviAction::Stamp,
     .disposes = false,
     .doesNothing = false,
     .changesMessage = true,
     .value = "STAMP",
     .example = "stamp: disclaimer",
     .summary = "Adds the text of a stamp to the body of the message.",
     .make = make<ActStamp>,
     .encode = encodeObjectId,
     .decode = decodeObjectId,
     .objectType = KaviNamedObj::StampType},
    {.name = "tag_subject",
     .type = KaviAction::TagSubject,
     .disposes = false,
     .doesNothing = false,
     .changesMessage = true,
     .value = "TAG",
     .example = "tag_subject: \"[EXTERNAL] \"",
     .summary = "Puts a tag in front of the subject.",
     .make = make<ActTagSubject>,
     .encode = encodeTagSubject,
     .decode = decodeTagSubject,
     .doubt = doubtTagSubject},
    {.name = "virus_clean",
     .type = KaviAction::VirusClean,
     .disposes = false,
     .doesNothing = true,
     .changesMessage = false,
     .value = "",
     .example = "virus_clean",
     .summary = "Does nothing; kept for policies that name it.",
     .make = make<ActVirusClean>,
     .encode = encodeNothing<uiVirusClean>,
     .decode = decodeNothing<uiVirusClean>},
    {.name = "x_header",
     .type = KaviAction::InsertXHeaderTag,
     .disposes = false,
     .doesNothing = false,
     .changesMessage = true,
     .value = "NAME: VALUE",
     .example = "x_header: \"X-Flag: yes\"",
     .summary = "Sets a header field: the first of that name, or a new one at the end.",
     .make = make<ActInsertXHeaderTag>,
     .encode = encodeXHeader,
     .decode = decodeXHeader,
     .doubt = doubtXHeader},
};

}  // namespace

std::unique_ptr<KaviAction> ActionSpec::build(const std::string& setting) const {
  std::unique_ptr<KaviAction> action = make();
  if (action == nullptr || !constructFrom(*action, setting)) return nullptr;
  return action;
}

std::vector<unsigned int> ActionSpec::objectIds(const std::string& setting) const {
  std::vector<unsigned int> ids;
  if (objectType != 0) make()->getNamedObjectIds(setting, ids);
  return ids;
}

std::span<const ActionSpec> allActions() { return kActions; }

const ActionSpec* findAction(std::string_view name) {
  const auto* spec = std::find_if(std::begin(kActions), std::end(kActions),
                                  [name](const ActionSpec& row) { return row.name == name; });
  return spec == std::end(kActions) ? nullptr : spec;
}

const ActionSpec* findAction(int type) {
  const auto* spec = std::find_if(std::begin(kActions), std::end(kActions),
                                  [type](const ActionSpec& row) { return row.type == type; });
  return spec == std::end(kActions) ? nullptr : spec;
}

std::vector<std::string_view> actionNames() {
  std::vector<std::string_view> names;
  for (const ActionSpec& row : kActions) names.push_back(row.name);
  return names;
}

}  // namespace gateway::policy
