// The platform's view of the store: one database interface for a call, and the operations on named
// objects.
#include <chrono>
#include <limits>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/core/guard.h"
#include "host/store/configured_store.h"
#include "library/platform/kavi_named_obj.h"
#include "library/platform/rdbms_interface.h"

namespace host::store {

namespace {

struct Configured {
  std::mutex mutex;
  std::shared_ptr<PolicyStore> store;
  std::string actor;
};

Configured& configured() {
  static Configured only;
  return only;
}

thread_local StoreStatus lastStatus;
thread_local std::optional<std::int64_t> expectedRevision;

std::int64_t now() {
  return std::chrono::duration_cast<std::chrono::seconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

}  // namespace

void configureStore(std::shared_ptr<PolicyStore> store, std::string actor) {
  Configured& present = configured();
  const std::lock_guard lock(present.mutex);
  present.store = std::move(store);
  present.actor = std::move(actor);
}

StoreStatus lastObjectOperation() { return lastStatus; }

ExpectedRevision::ExpectedRevision(std::int64_t revision) { expectedRevision = revision; }

ExpectedRevision::~ExpectedRevision() { expectedRevision.reset(); }

}  // namespace host::store

namespace {

using host::store::ObjectRecord;
using host::store::StoreError;
using host::store::StoreStatus;

}  // namespace

struct Kavi::RdbmsInterface::Impl {
  std::shared_ptr<host::store::PolicyStore> store;
  std::string actor;

  host::store::ChangeNote note() const {
    return {actor, host::store::now(), host::store::expectedRevision};
  }
};

Kavi::RdbmsInterface::RdbmsInterface() {
  host::core::guarded(false, [&] {
    host::store::Configured& present = host::store::configured();
    const std::lock_guard lock(present.mutex);
    impl_ = std::make_unique<Impl>(Impl{present.store, present.actor});
    return true;
  });
}

Kavi::RdbmsInterface::~RdbmsInterface() = default;

bool Kavi::RdbmsInterface::isOpen() const { return impl_ != nullptr && impl_->store != nullptr; }

namespace {

// Runs `work` on the interface's store. \return the number of the store's error
template <class Work>
int onStore(const Kavi::RdbmsInterface& database, Work&& work) {
  return host::core::guarded(static_cast<int>(StoreError::Internal), [&] {
    StoreStatus& status = host::store::lastStatus;
    status = {StoreError::Unavailable, "no store is open"};
    if (database.isOpen()) status = work(*database.impl()->store);
    return static_cast<int>(status.error);
  });
}

// The record that the arguments of an operation make.
ObjectRecord recordOf(unsigned int owner, std::string_view name, std::string_view content,
                      KaviNamedObj::NaObjType type) {
  ObjectRecord object;
  object.owner = owner;
  object.type = type;
  object.name = name;
  object.content = content;
  return object;
}

}  // namespace

int KaviNamedObj::add(Kavi::RdbmsInterface& database, unsigned int owner, std::string_view name,
                      std::string_view content, NaObjType type, unsigned int& id) {
  return onStore(database, [&](host::store::PolicyStore& store) {
    return store.addObject(recordOf(owner, name, content, type), database.impl()->note(), id);
  });
}

int KaviNamedObj::modify(Kavi::RdbmsInterface& database, unsigned int id, unsigned int owner,
                         std::string_view name, std::string_view content, NaObjType type) {
  return onStore(database, [&](host::store::PolicyStore& store) {
    ObjectRecord object = recordOf(owner, name, content, type);
    object.id = id;
    return store.changeObject(object, database.impl()->note());
  });
}

int KaviNamedObj::remove(Kavi::RdbmsInterface& database, unsigned int id, unsigned int owner) {
  return onStore(database, [&](host::store::PolicyStore& store) {
    return store.removeObject(id, owner, database.impl()->note());
  });
}

int KaviNamedObj::getIds(Kavi::RdbmsInterface& database, unsigned int owner, NaObjType type,
                         std::list<SummaryNamedObject>& rows) {
  // One statement, which sees one state: pages, each with a state of its own, would join the half
  // of one policy to the half of the next.
  const host::store::ObjectPage all{owner, type, 0, std::numeric_limits<std::size_t>::max()};
  return onStore(database, [&](host::store::PolicyStore& store) {
    std::vector<ObjectRecord> objects;
    StoreStatus status = store.listObjects(all, objects);
    if (!status.ok()) return status;
    std::list<SummaryNamedObject> found;
    for (ObjectRecord& object : objects) {
      found.push_back({object.id, object.inUse, object.builtIn, std::move(object.name)});
    }
    rows.splice(rows.end(), found);
    return status;
  });
}

int KaviNamedObj::getContentBlob(Kavi::RdbmsInterface& database, unsigned int id, std::string& name,
                                 std::string& content) {
  return onStore(database, [&](host::store::PolicyStore& store) {
    ObjectRecord object;
    StoreStatus status = store.findObject(id, object);
    if (status.ok()) {
      name = std::move(object.name);
      content = std::move(object.content);
    }
    return status;
  });
}
