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

template <class Record>
bool decodeArea(const std::string& setting, EntryKeys& keys) {
  Record record;
  if (!constructFrom(record, setting)) return false;
  keys.add("aging_days", std::to_string(record.agingDays));
  return true;
}

template <class Record, std::string Record::*Name>
std::string nameIn(const std::string& setting) {
  Record record;
  return constructFrom(record, setting) ? record.*Name : std::string();
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
     .decode = decodeArea<uiQuarantineArea>,
     .make = make<uiQuarantineArea>,
     .nameIn = nameIn<uiQuarantineArea, &uiQuarantineArea::areaName>},
    {.key = "archive_areas",
     .type = KaviNamedObj::ArchiveAreaType,
     .word = "archive area",
     .example = "- {name: journal, aging_days: 3650}",
     .required = "",
     .keys = kAreaKeys,
     .encode = encodeArea<ArchiveArea>,
     .decode = decodeArea<ArchiveArea>,
     .make = make<ArchiveArea>,
     .nameIn = nameIn<ArchiveArea, &ArchiveArea::areaName>},
    {.key = "stamps",
     .type = KaviNamedObj::StampType,
     .word = "stamp",
     .example = "- {name: disclaimer, text: \"Confidential.\"}",
     .required = ", text: \"Confidential.\"",
     .keys = kStampKeys,
     .encode = encodeStamp,
     .decode = decodeStamp,
     .make = make<uiStampArea>,
     .doubt = doubtStamp},
    {.key = "notifications",
     .type = KaviNamedObj::NotificationType,
     .word = "notification",
     .example = "- {name: tell-admin, recipients: [admin@example.org], body: \"A rule matched.\"}",
     .required = ", recipients: [admin@example.org], body: \"A rule matched.\"",
     .keys = kNotificationKeys,
     .encode = encodeNotification,
     .decode = decodeNotification,
     .make = make<uiNotifyArea>,
     .doubt = doubtNotification,
     .nameIn = nameIn<uiNotifyArea, &uiNotifyArea::name>},
};

/// Whether \p entry is what an administrator could write for \p setting.
bool givesAgain(const ObjectKind& kind, const Node& entry, const std::string& name,
                const std::string& setting) {
  const std::optional<std::string> noFolder;
  std::string again;
  return kind.encode({entry, name, noFolder}, again, [](int, const std::string&) {}) &&
         again == setting;
}

}  // namespace

bool isWritableName(std::string_view name) {
  constexpr std::size_t kMaxLength = 255;
  return !name.empty() && name.size() <= kMaxLength &&
         std::none_of(name.begin(), name.end(),
                      [](char c) { return static_cast<unsigned char>(c) < 32; });
}

const Node& nameValue(const std::string& name, Document& document) {
  Node& value = document.addValue(name);
  if (!isWritableName(name)) value.kind = Node::Kind::Binary;
  return value;
}

void EntryKeys::addList(std::string_view key, const std::vector<std::string_view>& values) {
  Node& list = document_.add(Node::Kind::List, 0);
  for (const std::string_view value : values) {
    list.items.push_back(&document_.addValue(std::string(value)));
  }
  entry_.members.push_back({std::string(key), 0, &list});
}

const Node& entryOf(const ObjectKind& kind, const std::string& name, const std::string& setting,
                    Document& document) {
  Node& entry = document.add(Node::Kind::Map, 0);
  entry.members.push_back({"name", 0, &nameValue(name, document)});
  EntryKeys keys(document, entry);
  if (!kind.decode(setting, keys) || !givesAgain(kind, entry, name, setting)) {
    entry.members.resize(1);
    document.addMember(entry, kSettingKey, setting);
  }
  return entry;
}

std::unique_ptr<KaviNamedObj> ObjectKind::build(const std::string& setting) const {
  std::unique_ptr<KaviNamedObj> record = make();
  if (record == nullptr || !constructFrom(*record, setting)) return nullptr;
  return record;
}

std::string ObjectKind::doubtAbout(const std::string& name, const std::string& setting) const {
  const bool isOdd = nameIn != nullptr && build(setting) != nullptr && nameIn(setting) != name;
  if (isOdd) {
    return "is called " + inQuotes(nameIn(setting)) +
           " in its settings string, and that is the name its mail is filed and logged under "
           "(write both alike)";
  }
  return doubt != nullptr ? doubt(setting) : std::string();
}

std::span<const ObjectKind> allObjectKinds() { return kKinds; }

const ObjectKind* findObjectKind(unsigned int type) {
  const auto* kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                  [type](const ObjectKind& row) { return row.type == type; });
  return kind == std::end(kKinds) ? nullptr : kind;
}

}  // namespace gateway::policy
