#include "gateway/engine/records.h"

#include <utility>

#include "gateway/policy/named_objects.h"

namespace gateway::engine {

void Records::addFor(const policy::Snapshot::Rule& rule) {
  for (const policy::Snapshot::Action& action : rule.actions) {
    for (const unsigned int id : action.objects) {
      const policy::Snapshot::Object* object = policy_.findObject(id);
      if (object == nullptr || manager_.find(id) != nullptr) continue;
      const policy::ObjectKind* kind = policy::findObjectKind(object->type);
      std::unique_ptr<KaviNamedObj> record =
          kind != nullptr ? kind->build(object->setting) : nullptr;
      // Without a record the action says what is missing, and fails.
      if (record == nullptr) continue;
      manager_.set(id, record.get());
      records_.push_back(std::move(record));
    }
  }
}

}  // namespace gateway::engine
