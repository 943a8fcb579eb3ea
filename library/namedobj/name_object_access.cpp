#include "library/namedobj/name_object_access.h"

#include <cstring>
#include <utility>

#include "library/platform/rdbms_interface.h"

namespace {

constexpr char kReservedPrefix[] = "OPP:";

// Runs `body`; an exception counts as `failure`.
template <class Body>
int quietly(int failure, Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    return failure;
  }
}

bool isMissing(const char* text) { return text == nullptr || *text == '\0'; }

// What is wrong with the texts of an object, or Success.
int checkTexts(const char* name, const char* content) {
  if (isMissing(name) || isMissing(content)) {
    return NameObjectAccess::MissingArgument;
  }
  const bool reserved = std::strncmp(name, kReservedPrefix, std::strlen(kReservedPrefix)) == 0;
  return reserved ? NameObjectAccess::ReservedName : NameObjectAccess::Success;
}

}  // namespace

NameObjectSummary::NameObjectSummary(const SummaryNamedObject& row)
    : id(row.id), name(row.name), firstFlag(row.firstFlag), secondFlag(row.secondFlag) {}

NameObjectAccess::NameObjectAccess(KaviNamedObj::NaObjType objectType) : type_(objectType) {}

NameObjectAccess::~NameObjectAccess() = default;

int NameObjectAccess::getList(unsigned int owner, std::list<NameObjectSummary>& objects) {
  objects.clear();
  return quietly(ListFailed, [&]() -> int {
    Kavi::RdbmsInterface database;
    std::list<SummaryNamedObject> rows;
    if (KaviNamedObj::getIds(database, owner, type_, rows) != 0) {
      return ListFailed;
    }
    objects = std::list<NameObjectSummary>(rows.begin(), rows.end());
    return Success;
  });
}

int NameObjectAccess::add(unsigned int owner, const char* name, const char* content,
                          unsigned int& id) {
  if (const int fault = checkTexts(name, content); fault != Success) {
    return fault;
  }
  return quietly(AddRefused, [&]() -> int {
    Kavi::RdbmsInterface database;
    const int result = KaviNamedObj::add(database, owner, name, content, type_, id);
    return result == 0 ? Success : AddRefused;
  });
}

int NameObjectAccess::update(unsigned int owner, unsigned int id, const char* name,
                             const char* content) {
  if (const int fault = checkTexts(name, content); fault != Success) {
    return fault;
  }
  return quietly(ModifyRefused, [&]() -> int {
    Kavi::RdbmsInterface database;
    const int result = KaviNamedObj::modify(database, id, owner, name, content, type_);
    return result == 0 ? Success : ModifyRefused;
  });
}

int NameObjectAccess::get(unsigned int id, std::string& name, std::string& content) {
  return quietly(ReadFailed, [&]() -> int {
    Kavi::RdbmsInterface database;
    const int result = KaviNamedObj::getContentBlob(database, id, name, content);
    return result == 0 ? Success : ReadFailed;
  });
}

int NameObjectAccess::remove(unsigned int id, unsigned int owner) {
  return quietly(kRemoveFailed, [&] {
    Kavi::RdbmsInterface database;
    return KaviNamedObj::remove(database, id, owner);
  });
}

int NameObjectAccess::bind(const KaviActionN& action, const std::vector<unsigned int>& ids) {
  if (ids.empty()) {
    return MissingArgument;
  }
  return quietly(ReadFailed, [&]() -> int {
    Kavi::RdbmsInterface database;
    std::string name;
    std::string content;
    for (const unsigned int id : action.ids) {
      if (KaviNamedObj::getContentBlob(database, id, name, content) != 0) {
        return ReadFailed;
      }
    }
    // Callers hold the action as a constant; its id list is theirs to change all the same.
    const_cast<KaviActionN&>(action).ids = ids;
    return Success;
  });
}

int NameObjectAccess::getBindings(const KaviActionN& action, std::vector<unsigned int>& ids) {
  if (action.ids.empty()) {
    return MissingArgument;
  }
  return quietly(MissingArgument, [&]() -> int {
    ids = action.ids;
    return Success;
  });
}
