#include "tests/fakes/named_object_store.h"

#include <algorithm>
#include <utility>

#include "library/platform/rdbms_interface.h"
#include "tests/fakes/fault_plan.h"

namespace fakes {

namespace {

constexpr int kFaultResult = 77;
constexpr unsigned int kAny = 0;  // owner and type of what a test puts there

NamedObjectStore& store() { return NamedObjectStore::instance(); }

template <class... Values>
std::string call(const char* name, const Values&... values) {
  const Unswept unswept;
  std::string text = name;
  const auto append = [&text](const auto& value) {
    text += ' ';
    if constexpr (std::is_convertible_v<decltype(value), std::string_view>) {
      text += std::string_view(value);
    } else {
      text += std::to_string(static_cast<unsigned int>(value));
    }
  };
  (append(values), ...);
  return text;
}

}  // namespace

NamedObjectStore& NamedObjectStore::instance() {
  static NamedObjectStore store;
  return store;
}

void NamedObjectStore::clear() { *this = NamedObjectStore(); }

void NamedObjectStore::addContent(unsigned int id, const std::string& name,
                                  const std::string& content) {
  objects_.push_back({id, kAny, kAny, name, content});
}

void NamedObjectStore::opened() {
  const Unswept unswept;
  ++open_;
  calls_.emplace_back("open");
}

void NamedObjectStore::closed() {
  const Unswept unswept;
  --open_;
  calls_.emplace_back("close");
}

int NamedObjectStore::record(const std::string& call) {
  {
    const Unswept unswept;
    calls_.push_back(call);
  }
  return platformCallFails() ? kFaultResult : result_;
}

bool NamedObjectStore::isFree(const Object& object) const {
  return std::none_of(objects_.begin(), objects_.end(), [&](const Object& other) {
    return other.id != object.id && other.owner == object.owner && other.type == object.type &&
           other.name == object.name;
  });
}

int NamedObjectStore::add(Object object, unsigned int& id) {
  const Unswept unswept;
  if (!isFree(object)) return kFaultResult;
  object.id = id = ++lastId_;
  objects_.push_back(std::move(object));
  return 0;
}

int NamedObjectStore::modify(const Object& object) {
  const Unswept unswept;
  const auto found = std::find_if(objects_.begin(), objects_.end(), [&](const Object& other) {
    const bool isSame = other.owner == object.owner && other.type == object.type;
    return other.id == object.id && (isSame || other.owner == kAny);
  });
  if (found == objects_.end() || !isFree(object)) return kFaultResult;
  *found = object;
  return 0;
}

int NamedObjectStore::remove(unsigned int id, unsigned int owner) {
  const auto found = std::find_if(objects_.begin(), objects_.end(), [&](const Object& object) {
    return object.id == id && (object.owner == owner || object.owner == kAny);
  });
  if (found == objects_.end()) return kFaultResult;
  objects_.erase(found);
  return 0;
}

std::list<SummaryNamedObject> NamedObjectStore::list(unsigned int owner, unsigned int type) const {
  std::list<SummaryNamedObject> rows = rows_;
  for (const Object& object : objects_) {
    if (object.owner == owner && object.type == type)
      rows.push_back({object.id, 0, 0, object.name});
  }
  return rows;
}

const NamedObjectStore::Object* NamedObjectStore::find(unsigned int id) const {
  const auto found = std::find_if(objects_.begin(), objects_.end(),
                                  [id](const Object& object) { return object.id == id; });
  return found == objects_.end() ? nullptr : &*found;
}

}  // namespace fakes

struct Kavi::RdbmsInterface::Impl {};

Kavi::RdbmsInterface::RdbmsInterface() { fakes::store().opened(); }
Kavi::RdbmsInterface::~RdbmsInterface() { fakes::store().closed(); }
bool Kavi::RdbmsInterface::isOpen() const { return true; }

int KaviNamedObj::add(Kavi::RdbmsInterface& /*database*/, unsigned int owner, std::string_view name,
                      std::string_view content, NaObjType type, unsigned int& id) {
  const int result = fakes::store().record(fakes::call("add", owner, name, content, type));
  if (result != 0) return result;
  return fakes::store().add({0, owner, type, std::string(name), std::string(content)}, id);
}

int KaviNamedObj::modify(Kavi::RdbmsInterface& /*database*/, unsigned int id, unsigned int owner,
                         std::string_view name, std::string_view content, NaObjType type) {
  const int result = fakes::store().record(fakes::call("modify", id, owner, name, content, type));
  if (result != 0) return result;
  return fakes::store().modify({id, owner, type, std::string(name), std::string(content)});
}

int KaviNamedObj::remove(Kavi::RdbmsInterface& /*database*/, unsigned int id, unsigned int owner) {
  const int result = fakes::store().record(fakes::call("remove", id, owner));
  return result != 0 ? result : fakes::store().remove(id, owner);
}

int KaviNamedObj::getIds(Kavi::RdbmsInterface& /*database*/, unsigned int owner, NaObjType type,
                         std::list<SummaryNamedObject>& rows) {
  const int result = fakes::store().record(fakes::call("getIds", owner, type));
  if (result == 0) rows.splice(rows.end(), fakes::store().list(owner, type));
  return result;
}

int KaviNamedObj::getContentBlob(Kavi::RdbmsInterface& /*database*/, unsigned int id,
                                 std::string& name, std::string& content) {
  const int result = fakes::store().record(fakes::call("getContentBlob", id));
  const fakes::NamedObjectStore::Object* found = fakes::store().find(id);
  if (result != 0 || found == nullptr) return result != 0 ? result : fakes::kFaultResult;
  name = found->name;
  content = found->content;
  return 0;
}
