#include "host/store/policy_change.h"

#include "host/core/text_escape.h"
#include "host/store/sql_support.h"
#include "host/store/sql_texts.h"
#include "library/platform/kavi_named_obj.h"

namespace host::store {

namespace {

std::string describe(const ObjectRecord& object) {
  return std::string(objectTypeName(object.type)) + " '" + core::printable(object.name) + "' (" +
         std::to_string(object.id) + ")";
}

std::string describe(const RuleRecord& rule) {
  return "rule " + std::to_string(rule.id) + " '" + core::printable(rule.name) + "'";
}

}  // namespace

const char* objectTypeName(std::uint32_t type) {
  switch (type) {
    case KaviNamedObj::NotificationType:
      return "notification";
    case KaviNamedObj::StampType:
      return "stamp";
    case KaviNamedObj::QuarantineAreaType:
      return "quarantine area";
    case KaviNamedObj::ArchiveAreaType:
      return "archive area";
    default:
      return "object of an unknown type";
  }
}

PolicyChange::PolicyChange(Connection& connection, const ChangeNote& note)
    : connection_(connection), note_(note) {
  Query query(connection_, sql::kNextRevision);
  if (!query.next()) throw StoreFailure(StoreError::Damaged, "the policy's revision is missing");
  revision_ = query.number(0);
  if (note.revision && revision_ != *note.revision + 1) {
    throw StoreFailure(StoreError::Conflict, "somebody else changed something meanwhile");
  }
  lastObjectId_ = static_cast<std::uint32_t>(query.number(1));
  query.next();
}

void PolicyChange::note(const std::string& what) {
  Query(connection_, sql::kAddAudit)
      .bind(revision_)
      .bind(note_.now)
      .bind(note_.actor)
      .bind(what)
      .run();
}

void PolicyChange::addObject(const ObjectRecord& object) {
  Query(connection_, sql::kAddObject)
      .bind(std::int64_t{object.id})
      .bind(std::int64_t{object.owner})
      .bind(std::int64_t{object.type})
      .bind(object.name)
      .bind(object.content)
      .bind(std::int64_t{object.builtIn})
      .bind(note_.now)
      .bind(note_.now)
      .run();
  lastObjectId_ = object.id;
  Query(connection_, sql::kSetLastObject).bind(std::int64_t{object.id}).run();
  note("add " + describe(object));
}

void PolicyChange::changeObject(const ObjectRecord& object) {
  Query query(connection_, sql::kChangeObject);
  query.bind(object.name)
      .bind(object.content)
      .bind(note_.now)
      .bind(std::int64_t{object.id})
      .bind(std::int64_t{object.owner})
      .bind(std::int64_t{object.type});
  requireChange(query.run());
  note("change " + describe(object));
}

void PolicyChange::freeName(const ObjectRecord& object,
                            const std::unordered_set<std::string_view>& wanted) {
  // No usual name begins with a NUL; but a name may hold any bytes.
  std::string nobodys = std::string(1, '\0') + std::to_string(object.id);
  while (wanted.contains(nobodys) ||
         findObjectNamed(connection_, object.owner, object.type, nobodys) != 0) {
    nobodys += '\0';
  }
  Query(connection_, sql::kFreeName).bind(nobodys).bind(std::int64_t{object.id}).run();
}

void PolicyChange::removeObject(const ObjectRecord& object) {
  {
    Query query(connection_, sql::kCountReferrers);
    query.bind(std::int64_t{object.id});
    if (query.next() && query.number(0) != 0) {
      throw StoreFailure(StoreError::InUse, describe(object));
    }
  }
  Query query(connection_, sql::kRemoveObject);
  query.bind(std::int64_t{object.id}).bind(std::int64_t{object.owner});
  requireChange(query.run());
  note("remove " + describe(object));
}

void PolicyChange::insertActions(const RuleRecord& rule) {
  std::int64_t position = 0;
  for (const ActionRecord& action : rule.actions) {
    ++position;
    Query(connection_, sql::kAddAction)
        .bind(std::int64_t{rule.id})
        .bind(position)
        .bind(std::int64_t{action.type})
        .bind(action.setting)
        .run();
    std::int64_t place = 0;
    for (const std::uint32_t object : action.objects) {
      Query(connection_, sql::kAddRuleObject)
          .bind(std::int64_t{rule.id})
          .bind(position)
          .bind(++place)
          .bind(std::int64_t{object})
          .run();
    }
  }
}

void PolicyChange::addRule(const RuleRecord& rule) {
  Query(connection_, sql::kAddRule)
      .bind(std::int64_t{rule.id})
      .bind(rule.name)
      .bind(std::int64_t{rule.order})
      .bind(std::int64_t{rule.enabled})
      .bind(rule.condition)
      .bind(static_cast<std::int64_t>(rule.onFailure))
      .bind(static_cast<std::int64_t>(rule.verdict.kind))
      .bind(rule.verdict.text)
      .run();
  insertActions(rule);
  note("write " + describe(rule));
}

void PolicyChange::replaceRule(const RuleRecord& rule) {
  requireChange(Query(connection_, sql::kRemoveRule).bind(std::int64_t{rule.id}).run());
}

void PolicyChange::removeRule(const RuleRecord& rule) {
  replaceRule(rule);
  note("remove " + describe(rule));
}

}  // namespace host::store
