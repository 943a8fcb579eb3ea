#include "gateway/policy/named_objects.h"

#include <algorithm>
#include <charconv>

#include "gateway/policy/notifications.h"
#include "gateway/policy/settings_object.h"
#include "gateway/policy/stamps.h"
#include "gateway/policy/suggest.h"
#include "library/namedobj/notify_area.h"
#include "library/namedobj/quarantine_area.h"
#include "library/namedobj/stamp_area.h"
#include "library/platform/archive_area.h"

namespace gateway::policy {
namespace {

template <class Record>
std::unique_ptr<KaviNamedObj> make() {
  return std::make_unique<Record>();
}

bool readAgingDays(const Node& item, unsigned int& days, const FaultSink& fault) {
  const Node* value = item.find("aging_days");
  if (value == nullptr) return true;
  const char* end = value->text.data() + value->text.size();
  const auto [rest, error] = std::from_chars(value->text.data(), end, days);
  if (value->kind == Node::Kind::Scalar && !value->text.empty() && error == std::errc() &&
      rest == end && days <= kMaxAgingDays) {
    return true;
  }
  fault(value->line, "aging_days " + inQuotes(value->text) + " (write a whole number, 0 to " +
                         std::to_string(kMaxAgingDays) + "; 0 keeps mail for good)");
  return false;
}

template <class Record>
bool encodeArea(const ObjectEntry& entry, std::string& setting, const FaultSink& fault) {
  Record record;
  if (!readAgingDays(entry.item, record.agingDays, fault)) return false;
  record.areaName = entry.name;
  record.agingEnabled = record.agingDays != 0;
  setting = record.serialize();
  return true;
}

constexpr std::string_view kAreaKeys[] = {"name", "aging_days"};

const ObjectKind kKinds[] = {
    {.key = "quarantine_areas",
     .type = KaviNamedObj::QuarantineAreaType,
     .word = "quarantine area",
     .example = "- {name: virus, aging_days: 7}",
     .required = "",
     .keys = kAreaKeys,
     .encode = encodeArea<uiQuarantineArea>,
     .make = make<uiQuarantineArea>},
    {.key = "archive_areas",
     .type = KaviNamedObj::ArchiveAreaType,
     .word = "archive area",
     .example = "- {name: journal, aging_days: 3650}",
     .required = "",
     .keys = kAreaKeys,
     .encode = encodeArea<ArchiveArea>,
     .make = make<ArchiveArea>},
    {.key = "stamps",
     .type = KaviNamedObj::StampType,
     .word = "stamp",
     .example = "- {name: disclaimer, text: \"Confidential.\"}",
     .required = ", text: \"Confidential.\"",
     .keys = kStampKeys,
     .encode = encodeStamp,
     .make = make<uiStampArea>,
     .doubt = doubtStamp},
    {.key = "notifications",
     .type = KaviNamedObj::NotificationType,
     .word = "notification",
     .example = "- {name: tell-admin, recipients: [admin@example.org], body: \"A rule matched.\"}",
     .required = ", recipients: [admin@example.org], body: \"A rule matched.\"",
     .keys = kNotificationKeys,
     .encode = encodeNotification,
     .make = make<uiNotifyArea>,
     .doubt = doubtNotification},
};

}  // namespace

std::unique_ptr<KaviNamedObj> ObjectKind::build(const std::string& setting) const {
  std::unique_ptr<KaviNamedObj> record = make();
  if (record == nullptr || !constructFrom(*record, setting)) return nullptr;
  return record;
}

std::span<const ObjectKind> allObjectKinds() { return kKinds; }

const ObjectKind* findObjectKind(unsigned int type) {
  const auto* kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                  [type](const ObjectKind& row) { return row.type == type; });
  return kind == std::end(kKinds) ? nullptr : kind;
}

}  // namespace gateway::policy
