#include "gateway/cli/object_commands.h"

#include <list>
#include <nlohmann/json.hpp>

#include "gateway/cli/attempts.h"
#include "gateway/cli/json_output.h"
#include "gateway/cli/object_report.h"
#include "gateway/cli/object_target.h"
#include "gateway/cli/operation_result.h"
#include "gateway/cli/standard_streams.h"
#include "gateway/cli/startup.h"
#include "gateway/cli/store_session.h"
#include "gateway/cli/table.h"
#include "host/core/text_escape.h"
#include "host/store/configured_store.h"
#include "library/namedobj/name_object_access.h"

namespace gateway::cli {
namespace {

using host::core::printable;
using host::store::Database;
using host::store::ObjectRecord;
using host::store::RuleName;
using host::store::StoreStatus;
using nlohmann::ordered_json;
using policy::ObjectKind;

constexpr std::size_t kUsualPage = 100;  // of a list

/// Finds the id that `target`, and nothing else, means. \return the exit status
int findOne(Database& store, const ObjectOptions& options, const std::vector<std::string>& target,
            std::uint32_t& id) {
  std::size_t used = 0;
  const int status = findTarget(store, target, options.owner, id, used);
  if (status != ExitDone || used == target.size()) return status;
  complain("one object at a time (write its ID, or its TYPE and NAME)");
  return ExitUsage;
}

/// Reads an object: its texts by the operation, whose result it is, and then what the store knows
/// besides. Between the two somebody may have removed it.
OperationResult readOne(Database& store, std::uint32_t id, ObjectRecord& object) {
  // This operation, as the one that removes, asks for no type.
  NameObjectAccess access(KaviNamedObj::StampType);
  std::string name;
  std::string content;
  OperationResult result = resultOf(access.get(id, name, content));
  if (!result.ok()) return result;
  const StoreStatus status = store.findObject(id, object);
  if (!status.ok()) return {NameObjectAccess::ReadFailed, "ReadFailed", status.text};
  object.name = std::move(name);
  object.content = std::move(content);
  return result;
}

/// Tells how an operation ended. \param json  what belongs to it, for programs
/// \param done  what it did, for people
int report(const OperationResult& result, bool asJson, const ordered_json& json,
           const std::string& done) {
  if (result.ok()) noteChange(done);
  if (asJson) {
    ordered_json all = toJson(result);
    all.update(json);
    printJson(all);
  } else if (result.ok()) {
    printLine(resultText(result) + ": " + done);
  }
  if (!result.ok()) complain(resultText(result));
  return result.ok() ? ExitDone : ExitFailed;
}

/// All that an owner has of one type, through the operation that lists it.
OperationResult listAll(const ObjectKind& kind, std::uint32_t owner,
                        std::vector<ObjectRecord>& objects) {
  NameObjectAccess access(kind.type);
  std::list<NameObjectSummary> rows;
  OperationResult result = resultOf(access.getList(owner, rows));
  for (NameObjectSummary& row : rows) {
    ObjectRecord& object = objects.emplace_back();
    object.id = row.id;
    object.type = kind.type;
    object.name = std::move(row.name);
    object.inUse = row.firstFlag != 0;
    object.builtIn = row.secondFlag != 0;
  }
  return result;
}

/// All that an owner has of `kind`, or of every kind (null): a listing for each, none of which may
/// be of another state than the others.
OperationResult listWhole(Database& store, const ObjectKind* kind, std::uint32_t owner,
                          std::vector<ObjectRecord>& objects) {
  if (kind != nullptr) return listAll(*kind, owner, objects);
  const char* failed = "ListFailed";
  for (Attempts attempts; attempts.next();) {
    objects.clear();
    std::int64_t before = 0;
    std::int64_t after = 0;
    StoreStatus read = store.readRevision(before);
    for (const ObjectKind& each : policy::allObjectKinds()) {
      const OperationResult result = listAll(each, owner, objects);
      if (!result.ok()) return result;
    }
    if (read.ok()) read = store.readRevision(after);
    if (!read.ok()) return {NameObjectAccess::ListFailed, failed, read.text};
    if (before == after) return {0, "Success", ""};
  }
  return {NameObjectAccess::ListFailed, failed,
          "others keep changing the store (try again, or list one type at a time)"};
}

/// A part. The operation that lists cannot give one, and all of a large store takes its time.
OperationResult listPage(Database& store, const ObjectKind* kind, const ObjectOptions& options,
                         const ObjectListOptions& list, std::vector<ObjectRecord>& objects) {
  host::store::ObjectPage page;
  page.owner = options.owner.value_or(policy::kPolicyOwner);
  if (kind != nullptr) page.type = kind->type;
  page.afterId = list.after.value_or(0);
  page.limit = list.limit.value_or(kUsualPage);
  const StoreStatus status = store.listObjects(page, objects);
  if (status.ok()) return {0, "Success", ""};
  return {NameObjectAccess::ListFailed, "ListFailed", status.text};
}

void warnOfDoubts(const ObjectKind& kind, const ObjectTexts& texts) {
  if (const std::string doubt = kind.doubtAbout(texts.name, texts.setting); !doubt.empty()) {
    remark("warning: the " + std::string(kind.word) + " " + nameText(texts.name) + " " +
           printable(doubt));
  }
}

/// The operations end a text at its NUL: half a name would be stored without a word.
bool canTravel(const ObjectTexts& texts) {
  if (texts.name.find('\0') == std::string::npos) return true;
  complain("the name " + nameText(texts.name) + " holds a NUL, where it would end (leave it out)");
  return false;
}

ordered_json identity(std::uint32_t id, std::uint32_t type, const std::string& name) {
  ordered_json json = {{"id", id}, {"type", kindWord(type)}};
  addBytes("name", name, json);
  return json;
}

}  // namespace

int objectListCommand(const ObjectOptions& options, const ObjectListOptions& list) {
  const ObjectKind* kind = nullptr;
  if (!list.type.empty() && (kind = requireKind(list.type)) == nullptr) return ExitUsage;
  StoreSession session;
  if (const int status = session.open(options.store); status != ExitDone) return status;
  std::vector<ObjectRecord> objects;
  OperationResult result;
  const bool isPage = list.after || list.limit;
  if (isPage) {
    result = listPage(*session.store, kind, options, list, objects);
  } else {
    const std::uint32_t owner = options.owner.value_or(policy::kPolicyOwner);
    result = listWhole(*session.store, kind, owner, objects);
  }
  if (!result.ok()) return report(result, options.json, ordered_json::object(), "");
  if (options.json) {
    printJson(objectListJson(objects));
    return ExitDone;
  }
  printText(objectListText(objects));
  if (isPage && !objects.empty() && objects.size() == list.limit.value_or(kUsualPage)) {
    printLine("there may be more: --after " + std::to_string(objects.back().id));
  }
  return ExitDone;
}

int objectShowCommand(const ObjectOptions& options, const std::vector<std::string>& target,
                      bool entry) {
  StoreSession session;
  if (const int status = session.open(options.store); status != ExitDone) return status;
  std::uint32_t id = 0;
  if (const int status = findOne(*session.store, options, target, id); status != ExitDone) {
    return status;
  }
  ObjectRecord object;
  const OperationResult result = readOne(*session.store, id, object);
  if (!result.ok()) return report(result, options.json, {{"id", id}}, "");
  if (options.owner && object.owner != *options.owner) {
    complain("object " + std::to_string(id) + " is none of owner " +
             std::to_string(*options.owner) + " (kavi object list shows what is there)");
    return ExitFailed;
  }
  if (entry) {
    printText(objectEntryText(object));
    return ExitDone;
  }
  std::vector<RuleName> rules;
  if (const StoreStatus read = session.store->listReferrers(object.id, rules); !read.ok()) {
    complain(read.text);
    return ExitFailed;
  }
  if (options.json) {
    printJson(objectShowJson(object, rules));
  } else {
    printText(objectShowText(object, rules));
  }
  return ExitDone;
}

int objectAddCommand(const ObjectOptions& options, const std::vector<std::string>& arguments,
                     const ContentOptions& content) {
  if (arguments.empty()) {
    complain("nothing is named (write the TYPE and NAME of the new object)");
    return ExitUsage;
  }
  const ObjectKind* kind = requireKind(arguments[0]);
  if (kind == nullptr) return ExitUsage;
  if (arguments.size() < 2 && content.entryFile.empty()) {
    complain("what is the " + std::string(kind->word) +
             " called? (write its NAME behind the type)");
    return ExitUsage;
  }
  ContentOptions given = content;
  if (arguments.size() > 2) given.fields.assign(arguments.begin() + 2, arguments.end());
  StoreSession session;
  if (const int status = session.open(options.store); status != ExitDone) return status;
  ObjectTexts texts;
  if (arguments.size() > 1) texts.name = arguments[1];
  if (!makeContent(*kind, given, nullptr, texts) || !canTravel(texts)) return ExitUsage;
  NameObjectAccess access(kind->type);
  unsigned int id = 0;
  const OperationResult result = resultOf(access.add(
      options.owner.value_or(policy::kPolicyOwner), texts.name.c_str(), texts.setting.c_str(), id));
  if (result.ok()) warnOfDoubts(*kind, texts);
  return report(
      result, options.json,
      result.ok() ? identity(id, kind->type, texts.name) : ordered_json::object(),
      std::string(kind->word) + " " + nameText(texts.name) + " added, id " + std::to_string(id));
}

namespace {

/// Calls `attempt` with the revision that the store has before it looks anything up, as long as
/// somebody else changes the store until it changes it: what they did would be lost, or it would
/// happen to another object than was meant. \param attempt  (out: whether somebody else was faster)
/// -> exit status
template <class Attempt>
int unlessOvertaken(Database& store, Attempt&& attempt) {
  int status = ExitDone;
  bool again = true;
  for (Attempts attempts; again && attempts.next();) {
    std::int64_t revision = 0;
    if (const StoreStatus read = store.readRevision(revision); !read.ok()) {
      complain(read.text);
      return ExitFailed;
    }
    const host::store::ExpectedRevision expected(revision);
    again = false;
    status = attempt(again);
  }
  return status;
}

bool wasOvertaken(const OperationResult& result) {
  return !result.ok() &&
         host::store::lastObjectOperation().error == host::store::StoreError::Conflict;
}

/// What one attempt to change an object has led to.
struct Update {
  ObjectRecord object;  ///< as it was
  ObjectTexts texts;    ///< as it is to be
  OperationResult result;
};

/// Changes what stands in the store. \return the exit status, unless it came to the operation
int tryUpdate(Database& store, const ObjectOptions& options,
              const std::vector<std::string>& arguments, const ContentOptions& content,
              const std::optional<std::string>& name, Update& update) {
  std::size_t used = 0;
  const int status = findTarget(store, arguments, options.owner, update.object.id, used);
  if (status != ExitDone) return status;
  // What is not given stays, and has to be read for that.
  update.result = readOne(store, update.object.id, update.object);
  if (!update.result.ok()) return ExitDone;
  const ObjectRecord& object = update.object;
  const ObjectKind* kind = policy::findObjectKind(object.type);
  if (kind == nullptr) {
    complain(objectText(object) + " cannot be changed: its type is none that this program knows");
    return ExitFailed;
  }
  ContentOptions given = content;
  given.fields.assign(arguments.begin() + static_cast<std::ptrdiff_t>(used), arguments.end());
  if (given.isEmpty() && !name) {
    complain(
        "nothing to change (write KEY=VALUE for fields, --name, --from, --setting or "
        "--setting-file)");
    return ExitUsage;
  }
  const ObjectTexts present{object.name, object.content};
  update.texts = {name.value_or(""), ""};
  if (!makeContent(*kind, given, &present, update.texts)) return ExitUsage;
  if (name && name->empty()) update.texts.name.clear();
  if (!canTravel(update.texts)) return ExitUsage;
  NameObjectAccess access(kind->type);
  update.result = resultOf(access.update(options.owner.value_or(object.owner), object.id,
                                         update.texts.name.c_str(), update.texts.setting.c_str()));
  return ExitDone;
}

}  // namespace

int objectUpdateCommand(const ObjectOptions& options, const std::vector<std::string>& arguments,
                        const ContentOptions& content, const std::optional<std::string>& name) {
  StoreSession session;
  if (const int status = session.open(options.store); status != ExitDone) return status;
  Update update;
  const int status = unlessOvertaken(*session.store, [&](bool& again) {
    const int tried = tryUpdate(*session.store, options, arguments, content, name, update);
    again = tried == ExitDone && wasOvertaken(update.result);
    return tried;
  });
  if (status != ExitDone) return status;
  const ObjectRecord& object = update.object;
  if (update.result.ok()) warnOfDoubts(*policy::findObjectKind(object.type), update.texts);
  return report(
      update.result, options.json,
      object.type != 0 ? identity(object.id, object.type, update.texts.name)
                       : ordered_json{{"id", object.id}},
      objectText(object) + " changed" +
          (update.texts.name != object.name ? ", now " + nameText(update.texts.name) : ""));
}

int objectRemoveCommand(const ObjectOptions& options, const std::vector<std::string>& target) {
  StoreSession session;
  if (const int status = session.open(options.store); status != ExitDone) return status;
  ObjectRecord object;
  bool isThere = false;
  OperationResult result;
  const int status = unlessOvertaken(*session.store, [&](bool& again) {
    const int found = findOne(*session.store, options, target, object.id);
    if (found != ExitDone) return found;
    // To be named in the report. That it is not there, or another owner's, the operation tells.
    isThere = session.store->findObject(object.id, object).ok();
    NameObjectAccess access(KaviNamedObj::StampType);
    result = removalOf(access.remove(object.id, options.owner.value_or(object.owner)));
    again = wasOvertaken(result);
    return found;
  });
  if (status != ExitDone) return status;
  ordered_json json =
      isThere ? identity(object.id, object.type, object.name) : ordered_json{{"id", object.id}};
  if (result.code == static_cast<int>(host::store::StoreError::InUse)) {
    std::vector<RuleName> rules;
    if (session.store->listReferrers(object.id, rules).ok()) {
      result.meaning = objectText(object) + " stays: it is used by " + referrersText(rules) +
                       " (bind them to another one with kavi rule bind, or take it out of them "
                       "with kavi policy apply, and remove it then)";
      json["rules"] = ordered_json::array();
      for (const RuleName& rule : rules) json["rules"].push_back(rule.id);
    }
  }
  return report(result, options.json, json, objectText(object) + " removed");
}

}  // namespace gateway::cli
