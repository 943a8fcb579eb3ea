#include "tests/e2e/store/storm_user.h"

#include <list>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "host/store/configured_store.h"

namespace storm {

namespace {

using host::store::ActionRecord;
using host::store::ObjectRecord;
using host::store::PolicyRecord;
using host::store::RuleRecord;
using host::store::StoreError;
using host::store::StoreStatus;

constexpr std::uint32_t kStamp = KaviNamedObj::StampType;
constexpr int kTagAction = 8;
constexpr unsigned int kMostRules = 8;
constexpr char kMark[] = "mark";

[[noreturn]] void fail(const std::string& what) { throw std::runtime_error(what); }

void require(const StoreStatus& status) {
  if (!status.ok()) fail(status.text);
}

void require(int result, const char* what) {
  if (result != NameObjectAccess::Success) {
    fail(std::string(what) + ": " + std::to_string(result) + ", " +
         host::store::lastObjectOperation().text);
  }
}

}  // namespace

std::string UserState::text() const {
  std::ostringstream out;
  for (const auto& [id, object] : objects) {
    out << "object " << id << ' ' << object.first << ' ' << object.second << '\n';
  }
  for (const std::uint32_t id : given) out << "given " << id << '\n';
  for (const auto& [word, times] : done) out << "done " << word << ' ' << times << '\n';
  return out.str();
}

UserState UserState::of(const std::string& text) {
  UserState state;
  std::istringstream in(text);
  for (std::string kind; in >> kind;) {
    std::uint32_t id = 0;
    std::string word;
    if (kind == "object") {
      std::string content;
      in >> id >> word >> content;
      state.objects[id] = {word, content};
    } else if (kind == "given") {
      in >> id;
      state.given.insert(id);
    } else {
      in >> word;
      in >> state.done[word];
    }
  }
  return state;
}

std::string faultOf(const PolicyRecord& policy) {
  const ObjectRecord* mark = nullptr;
  for (const ObjectRecord& object : policy.objects) {
    if (object.owner == kRuleOwner) {
      if (mark != nullptr) return "two marks";
      mark = &object;
    }
  }
  if (mark == nullptr) return policy.rules.empty() ? "" : "rules without their mark";
  const std::string& token = mark->content;
  if (policy.rules.size() != token.size() % kMostRules + 1) {
    return std::to_string(policy.rules.size()) + " rules with " + token;
  }
  std::uint32_t order = 0;
  for (const RuleRecord& rule : policy.rules) {
    const bool whole = rule.name == token && rule.order == ++order && rule.actions.size() == 1 &&
                       rule.actions[0].setting == token &&
                       rule.actions[0].objects == std::vector{mark->id};
    if (!whole) return "a rule of " + rule.name + " with " + token;
  }
  return {};
}

User::User(std::shared_ptr<host::store::PolicyStore> store, std::uint32_t number)
    : store_(std::move(store)),
      number_(number),
      actor_("user " + std::to_string(number)),
      random_(number),
      access_(KaviNamedObj::StampType) {
  host::store::configureStore(store_, actor_);
}

void User::step() {
  switch (random(10)) {
    case 0:
    case 1:
    case 2:
      return add();
    case 3:
      return update();
    case 4:
      return remove();
    case 5:
    case 6:
      return replace();
    case 7:
      return listOwn();
    default:
      return readWhole();
  }
}

std::string User::nextName() {
  return std::to_string(number_) + "." + std::to_string(++names_) + std::string(random(20), 'x');
}

std::map<std::uint32_t, std::pair<std::string, std::string>>::iterator User::anyOwn() {
  auto at = state_.objects.begin();
  if (!state_.objects.empty()) {
    std::advance(at, random(static_cast<unsigned int>(state_.objects.size())));
  }
  return at;
}

void User::add() {
  const std::string name = nextName();
  unsigned int id = 0;
  require(access_.add(number_, name.c_str(), name.c_str(), id), "add");
  if (!state_.given.insert(id).second) fail("the id " + std::to_string(id) + " was given twice");
  state_.objects[id] = {name, name};
  ++state_.done["add"];
}

void User::update() {
  const auto own = anyOwn();
  if (own == state_.objects.end()) return;
  const std::string name = nextName();
  require(access_.update(number_, own->first, name.c_str(), name.c_str()), "update");
  own->second = {name, name};
  ++state_.done["change"];
}

void User::remove() {
  const auto own = anyOwn();
  if (own == state_.objects.end()) return;
  require(access_.remove(own->first, number_), "remove");
  state_.objects.erase(own);
  ++state_.done["remove"];
}

void User::replace() {
  const std::string token = nextName();
  for (;;) {
    PolicyRecord policy;
    require(store_->readPolicy(policy));
    if (const std::string fault = faultOf(policy); !fault.empty()) fail(fault);
    ObjectRecord* mark = nullptr;
    for (ObjectRecord& object : policy.objects) {
      if (object.owner == kRuleOwner) mark = &object;
    }
    if (mark == nullptr) {
      mark = &policy.objects.emplace_back();
      mark->id = policy.lastObjectId + 1;
      mark->owner = kRuleOwner;
      mark->type = kStamp;
      mark->name = kMark;
    }
    mark->content = token;
    policy.rules.clear();
    for (unsigned int i = 1; i <= token.size() % kMostRules + 1; ++i) {
      policy.rules.push_back({i, token, i, true, "c", {{kTagAction, token, {mark->id}}}});
    }
    std::int64_t revision = 0;
    const StoreStatus status = store_->replacePolicy(policy, {actor_, 1}, revision);
    if (status.error == StoreError::Conflict) continue;  // somebody was faster: once more
    require(status);
    break;
  }
  ++state_.done["replace"];
}

void User::readWhole() {
  PolicyRecord policy;
  require(store_->readPolicy(policy));
  if (const std::string fault = faultOf(policy); !fault.empty()) fail(fault);
  if (policy.revision < revision_) fail("the revision went backwards");
  revision_ = policy.revision;
  std::map<std::uint32_t, std::pair<std::string, std::string>> own;
  for (const ObjectRecord& object : policy.objects) {
    if (object.owner == number_) own[object.id] = {object.name, object.content};
  }
  if (own != state_.objects) fail("a change of this user is missing");
}

void User::listOwn() {
  std::list<NameObjectSummary> objects;
  require(access_.getList(number_, objects), "getList");
  std::map<std::uint32_t, std::string> listed;
  for (const NameObjectSummary& object : objects) listed[object.id] = object.name;
  std::map<std::uint32_t, std::string> expected;
  for (const auto& [id, object] : state_.objects) expected[id] = object.first;
  if (listed != expected) fail("the list is not what this user wrote");
}

}  // namespace storm
