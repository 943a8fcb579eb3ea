// The named objects.
#include <utility>

#include "host/store/object_columns.h"
#include "host/store/policy_change.h"
#include "host/store/sql_store.h"
#include "host/store/sql_support.h"
#include "host/store/sql_texts.h"

namespace host::store {

namespace {

constexpr char kObjectChange[] = "changing the named objects";
constexpr char kObjectRead[] = "reading the named objects";

// Refuses a name that another object of the same owner and type has.
void requireFreeName(Connection& connection, const ObjectRecord& object) {
  const std::uint32_t id = findObjectNamed(connection, object.owner, object.type, object.name);
  if (id != 0 && id != object.id) {
    throw StoreFailure(StoreError::NameTaken, "object " + std::to_string(id));
  }
}

ObjectRecord findOne(Connection& connection, std::uint32_t id) {
  Query query(connection, sql::kFindObject);
  query.bind(std::int64_t{id});
  if (!query.next()) throw StoreFailure(StoreError::NotFound, "object " + std::to_string(id));
  return readObject(query, ObjectContent::Read);
}

}  // namespace

std::uint32_t findObjectNamed(Connection& connection, std::uint32_t owner, std::uint32_t type,
                              const std::string& name) {
  Query query(connection, sql::kFindObjectName);
  query.bind(std::int64_t{owner}).bind(std::int64_t{type}).bind(name);
  return query.next() ? numberOf<std::uint32_t>(query, 0) : 0;
}

StoreStatus SqlStore::addObject(const ObjectRecord& object, const ChangeNote& note,
                                std::uint32_t& id) {
  std::uint32_t given = 0;
  StoreStatus status = run(kObjectChange, Access::Write, [&](Connection& connection) {
    PolicyChange change(connection, note);
    ObjectRecord added = object;
    added.id = nextObjectId(change.lastObjectId());
    requireFreeName(connection, added);
    change.addObject(added);
    given = added.id;
  });
  if (status.ok()) id = given;
  return status;
}

StoreStatus SqlStore::changeObject(const ObjectRecord& object, const ChangeNote& note) {
  return run(kObjectChange, Access::Write, [&](Connection& connection) {
    PolicyChange change(connection, note);
    requireFreeName(connection, object);
    change.changeObject(object);
  });
}

StoreStatus SqlStore::removeObject(std::uint32_t id, std::uint32_t owner, const ChangeNote& note) {
  return run(kObjectChange, Access::Write, [&](Connection& connection) {
    PolicyChange change(connection, note);
    ObjectRecord object = findOne(connection, id);
    object.owner = owner;
    change.removeObject(object);
  });
}

StoreStatus SqlStore::findObject(std::uint32_t id, ObjectRecord& object) {
  return run(kObjectRead, Access::Single,
             [&](Connection& connection) { object = findOne(connection, id); });
}

StoreStatus SqlStore::findObjectNamed(std::uint32_t owner, std::uint32_t type,
                                      const std::string& name, std::uint32_t& id) {
  return run(kObjectRead, Access::Single, [&](Connection& connection) {
    const std::uint32_t found = host::store::findObjectNamed(connection, owner, type, name);
    if (found == 0) throw StoreFailure(StoreError::NotFound, {});
    id = found;
  });
}

StoreStatus SqlStore::listObjects(const ObjectPage& page, std::vector<ObjectRecord>& objects) {
  return run(kObjectRead, Access::Single, [&](Connection& connection) {
    const char* text = page.type ? sql::kListObjectsOfType : sql::kListObjects;
    if (page.owner) text = page.type ? sql::kListObjectsOfBoth : sql::kListObjectsOfOwner;
    Query query(connection, text);
    if (page.owner) query.bind(std::int64_t{*page.owner});
    if (page.type) query.bind(std::int64_t{*page.type});
    query.bind(std::int64_t{page.afterId}).bind(limitOf(page.limit));
    std::vector<ObjectRecord> found;
    while (query.next()) found.push_back(readObject(query, ObjectContent::Leave));
    objects.swap(found);
  });
}

StoreStatus SqlStore::listReferrers(std::uint32_t id, std::vector<RuleName>& rules) {
  return run(kObjectRead, Access::Single, [&](Connection& connection) {
    Query query(connection, sql::kListReferrers);
    query.bind(std::int64_t{id});
    std::vector<RuleName> found;
    while (query.next()) found.push_back({numberOf<std::uint32_t>(query, 0), query.bytes(1)});
    rules.swap(found);
  });
}

}  // namespace host::store
