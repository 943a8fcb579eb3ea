#include "tests/fakes/named_object_store.h"

#include <algorithm>

#include "library/platform/rdbms_interface.h"
#include "tests/fakes/fault_plan.h"

namespace fakes {

namespace {

constexpr int kFaultResult = 77;
constexpr unsigned int kNewId = 4711;

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
  contents_.push_back({id, name, content});
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

const NamedObjectStore::Content* NamedObjectStore::find(unsigned int id) const {
  const auto found = std::find_if(contents_.begin(), contents_.end(),
                                  [id](const Content& content) { return content.id == id; });
  return found == contents_.end() ? nullptr : &*found;
}

}  // namespace fakes

struct Kavi::RdbmsInterface::Impl {};

Kavi::RdbmsInterface::RdbmsInterface() { fakes::store().opened(); }
Kavi::RdbmsInterface::~RdbmsInterface() { fakes::store().closed(); }
bool Kavi::RdbmsInterface::isOpen() const { return true; }

int KaviNamedObj::add(Kavi::RdbmsInterface& /*database*/, unsigned int owner, std::string_view name,
                      std::string_view content, NaObjType type, unsigned int& id) {
  const int result = fakes::store().record(fakes::call("add", owner, name, content, type));
  if (result == 0) id = fakes::kNewId;
  return result;
}

int KaviNamedObj::modify(Kavi::RdbmsInterface& /*database*/, unsigned int id, unsigned int owner,
                         std::string_view name, std::string_view content, NaObjType type) {
  return fakes::store().record(fakes::call("modify", id, owner, name, content, type));
}

int KaviNamedObj::remove(Kavi::RdbmsInterface& /*database*/, unsigned int id, unsigned int owner) {
  return fakes::store().record(fakes::call("remove", id, owner));
}

int KaviNamedObj::getIds(Kavi::RdbmsInterface& /*database*/, unsigned int owner, NaObjType type,
                         std::list<SummaryNamedObject>& rows) {
  const int result = fakes::store().record(fakes::call("getIds", owner, type));
  if (result == 0)
    rows.insert(rows.end(), fakes::store().rows().begin(), fakes::store().rows().end());
  return result;
}

int KaviNamedObj::getContentBlob(Kavi::RdbmsInterface& /*database*/, unsigned int id,
                                 std::string& name, std::string& content) {
  const int result = fakes::store().record(fakes::call("getContentBlob", id));
  const fakes::NamedObjectStore::Content* found = fakes::store().find(id);
  if (result != 0 || found == nullptr) return result != 0 ? result : fakes::kFaultResult;
  name = found->name;
  content = found->content;
  return 0;
}
