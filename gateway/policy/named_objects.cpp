#include "gateway/policy/named_objects.h"

#include <algorithm>

#include "gateway/policy/settings_object.h"
#include "library/namedobj/quarantine_area.h"
#include "library/platform/archive_area.h"

namespace gateway::policy {
namespace {

template <class Record>
std::unique_ptr<KaviNamedObj> make() {
  return std::make_unique<Record>();
}

template <class Record>
std::string encodeArea(const std::string& name, unsigned int agingDays) {
  Record record;
  record.areaName = name;
  record.agingDays = agingDays;
  record.agingEnabled = agingDays != 0;
  return record.serialize();
}

const ObjectKind kKinds[] = {
    {.key = "quarantine_areas",
     .type = KaviNamedObj::QuarantineAreaType,
     .word = "quarantine area",
     .example = "- {name: virus, aging_days: 7}",
     .encodeArea = encodeArea<uiQuarantineArea>,
     .make = make<uiQuarantineArea>},
    {.key = "archive_areas",
     .type = KaviNamedObj::ArchiveAreaType,
     .word = "archive area",
     .example = "- {name: journal, aging_days: 3650}",
     .encodeArea = encodeArea<ArchiveArea>,
     .make = make<ArchiveArea>},
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
