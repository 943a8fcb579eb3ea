#include "gateway/engine/records.h"

#include <utility>

#include "gateway/policy/named_objects.h"

namespace gateway::engine {

void Records::addFor(const policy::Snapshot::Rule& rule) {
  for (const policy::Snapshot::Action& action : rule.actions) {
    for (const unsigned int id : action.objects) {
      if (manager_.find(id) == nullptr) add(id);
    }
  }
}

void Records::renewFor(const policy::Snapshot::Action& action) {
  for (const unsigned int id : action.objects) add(id);
}

void Records::add(unsigned int id) {
  const policy::Snapshot::Object* object = policy_.findObject(id);
  const policy::ObjectKind* kind =
      object != nullptr ? policy::findObjectKind(object->type) : nullptr;
  std::unique_ptr<KaviNamedObj> record = kind != nullptr ? kind->build(object->setting) : nullptr;
  // Without a record the action says what is missing, and fails.
  if (record == nullptr) return;
  manager_.set(id, record.get());
  records_[id] = std::move(record);
}

}  // namespace gateway::engine
