// The statements of the store, one text for every database. Here are those on policies.
//
// Parameters are $1, $2, ... and stand in ascending order where they are used first: SQLite, to
// which they are names, numbers them by that order, so that both count alike. Texts are kept as
// bytes: compared byte by byte, with any value, on every database.
#pragma once

#include <array>

#include "host/store/sql_index_texts.h"

namespace host::store::sql {

#define KAVI_OBJECT_COLUMNS                                   \
  "id, owner, type, name, built_in, created_at, changed_at, " \
  "CASE WHEN EXISTS (SELECT 1 FROM rule_object WHERE object = id) THEN 1 ELSE 0 END"
#define KAVI_SELECT_OBJECT "SELECT " KAVI_OBJECT_COLUMNS " FROM named_object "

// Every change of the policy begins with one of these: the row keeps other writers waiting.
inline constexpr char kNextRevision[] =
    "UPDATE policy_state SET revision = revision + 1 RETURNING revision, last_object";
inline constexpr char kSetLastObject[] = "UPDATE policy_state SET last_object = $1";
inline constexpr char kReadState[] = "SELECT revision, last_object FROM policy_state";
inline constexpr char kAddAudit[] =
    "INSERT INTO policy_audit (revision, at, actor, what) VALUES ($1, $2, $3, $4)";
inline constexpr char kListAudit[] =
    "SELECT id, revision, at, actor, what FROM policy_audit WHERE id > $1 ORDER BY id LIMIT $2";

inline constexpr char kAddObject[] =
    "INSERT INTO named_object (id, owner, type, name, content, built_in, created_at, changed_at) "
    "VALUES ($1, $2, $3, $4, $5, $6, $7, $8)";
inline constexpr char kChangeObject[] =
    "UPDATE named_object SET name = $1, content = $2, changed_at = $3 "
    "WHERE id = $4 AND owner = $5 AND type = $6";
inline constexpr char kFreeName[] = "UPDATE named_object SET name = $1 WHERE id = $2";
inline constexpr char kCountReferrers[] = "SELECT count(*) FROM rule_object WHERE object = $1";
inline constexpr char kRemoveObject[] = "DELETE FROM named_object WHERE id = $1 AND owner = $2";
inline constexpr char kFindObject[] =
    "SELECT " KAVI_OBJECT_COLUMNS ", content FROM named_object WHERE id = $1";
// Where there is a digest the index has that; two names may share one in theory.
inline constexpr char kFindObjectName[] =
    "SELECT id FROM named_object WHERE owner = $1 AND type = $2 AND {digest}(name) = {digest}($3) "
    "AND name = $3";
inline constexpr char kListObjects[] = KAVI_SELECT_OBJECT
    "WHERE id > $1 "
    "ORDER BY id LIMIT $2";
inline constexpr char kListObjectsOfType[] = KAVI_SELECT_OBJECT
    "WHERE type = $1 AND id > $2 "
    "ORDER BY id LIMIT $3";
inline constexpr char kListObjectsOfOwner[] = KAVI_SELECT_OBJECT
    "WHERE owner = $1 AND id > $2 "
    "ORDER BY id LIMIT $3";
inline constexpr char kListObjectsOfBoth[] = KAVI_SELECT_OBJECT
    "WHERE owner = $1 AND type = $2 AND id > $3 "
    "ORDER BY id LIMIT $4";
inline constexpr char kListReferrers[] =
    "SELECT id, name FROM rule WHERE id IN (SELECT rule FROM rule_object WHERE object = $1) "
    "ORDER BY position";

#define KAVI_SELECT_RULE                                                                   \
  "SELECT id, name, position, enabled, condition, on_failure, verdict, verdict_text FROM " \
  "rule "
#define KAVI_OF_RULES_BETWEEN "WHERE rule.position BETWEEN $1 AND $2 "

// A whole policy; the only statements that read tables from end to end.
inline constexpr char kReadObjects[] =
    "SELECT " KAVI_OBJECT_COLUMNS ", content FROM named_object ORDER BY id";
inline constexpr char kReadRules[] = KAVI_SELECT_RULE "ORDER BY position";
inline constexpr char kReadActions[] =
    "SELECT rule, position, type, setting FROM rule_action ORDER BY rule, position";
inline constexpr char kReadRuleObjects[] =
    "SELECT rule, action, object FROM rule_object ORDER BY rule, action, position";

// The rules between two positions, and what belongs to them.
inline constexpr char kFindRule[] = KAVI_SELECT_RULE "WHERE id = $1";
inline constexpr char kListRules[] = KAVI_SELECT_RULE
    "WHERE position > $1 "
    "ORDER BY position LIMIT $2";
inline constexpr char kListActions[] =
    "SELECT a.rule, a.position, a.type, a.setting FROM rule "
    "JOIN rule_action a ON a.rule = rule.id " KAVI_OF_RULES_BETWEEN
    "ORDER BY rule.position, a.position";
inline constexpr char kListRuleObjects[] =
    "SELECT o.rule, o.action, o.object FROM rule "
    "JOIN rule_object o ON o.rule = rule.id " KAVI_OF_RULES_BETWEEN
    "ORDER BY rule.position, o.action, o.position";
inline constexpr char kListReferred[] = KAVI_SELECT_OBJECT
    "WHERE id IN (SELECT o.object FROM rule "
    "JOIN rule_object o ON o.rule = rule.id " KAVI_OF_RULES_BETWEEN ") ORDER BY id";

inline constexpr char kAddRule[] =
    "INSERT INTO rule (id, name, position, enabled, condition, on_failure, verdict, verdict_text) "
    "VALUES ($1, $2, $3, $4, $5, $6, $7, $8)";
inline constexpr char kRemoveRule[] = "DELETE FROM rule WHERE id = $1";
inline constexpr char kAddAction[] =
    "INSERT INTO rule_action (rule, position, type, setting) VALUES ($1, $2, $3, $4)";
inline constexpr char kAddRuleObject[] =
    "INSERT INTO rule_object (rule, action, position, object) VALUES ($1, $2, $3, $4)";

/// All of them, for whoever wants to look at every one.
inline constexpr std::array kEveryStatement{
    kAddEntry,           kAddMissing,        kRemoveEntry,    kRemovePath,   kFindEntry,
    kFindPath,           kFindMessage,       kListAll,        kListKind,     kListArea,
    kListKindArea,       kListExpired,       kListPaths,      kBeginEffect,  kFindEffect,
    kTakeOverEffect,     kFinishEffect,      kAbandonEffect,  kReopenEffect, kForgetMessage,
    kForgetBefore,       kNextRevision,      kSetLastObject,  kReadState,    kAddAudit,
    kListAudit,          kAddObject,         kChangeObject,   kFreeName,     kCountReferrers,
    kRemoveObject,       kFindObject,        kFindObjectName, kListObjects,  kListObjectsOfType,
    kListObjectsOfOwner, kListObjectsOfBoth, kListReferrers,  kReadObjects,  kReadRules,
    kReadActions,        kReadRuleObjects,   kAddRule,        kRemoveRule,   kAddAction,
    kAddRuleObject,      kFindRule,          kListRules,      kListActions,  kListRuleObjects,
    kListReferred};

#undef KAVI_OF_RULES_BETWEEN
#undef KAVI_SELECT_RULE
#undef KAVI_SELECT_OBJECT
#undef KAVI_OBJECT_COLUMNS

}  // namespace host::store::sql
