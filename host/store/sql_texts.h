// The statements of the store, one text for every database.
//
// Parameters are $1, $2, ... and stand in ascending order where they are used first: SQLite, to
// which they are names, numbers them by that order, so that both count alike. Texts are kept as
// bytes: compared byte by byte, with any value, on every database.
#pragma once

#include <array>

namespace host::store::sql {

#define KAVI_ENTRY_COLUMNS                                                            \
  "id, kind, area, message_id, rule, aging_days, sender, recipients, subject, size, " \
  "stored_at, path"
#define KAVI_SELECT_ENTRY "SELECT " KAVI_ENTRY_COLUMNS " FROM message_index "

#define KAVI_INSERT_ENTRY                                                                     \
  "INSERT INTO message_index (kind, area, message_id, rule, aging_days, sender, recipients, " \
  "subject, size, stored_at, path, expires_at) "                                              \
  "VALUES ($1, $2, $3, $4, $5, $6, $7, $8, $9, $10, $11, $12) ON CONFLICT (path) DO "

inline constexpr char kAddEntry[] = KAVI_INSERT_ENTRY
    "UPDATE SET kind = excluded.kind, area = excluded.area, message_id = excluded.message_id, "
    "rule = excluded.rule, aging_days = excluded.aging_days, sender = excluded.sender, "
    "recipients = excluded.recipients, subject = excluded.subject, size = excluded.size, "
    "stored_at = excluded.stored_at, expires_at = excluded.expires_at RETURNING id";
inline constexpr char kAddMissing[] = KAVI_INSERT_ENTRY "NOTHING";
inline constexpr char kRemoveEntry[] = "DELETE FROM message_index WHERE id = $1";
inline constexpr char kRemovePath[] = "DELETE FROM message_index WHERE path = $1";
inline constexpr char kFindEntry[] = KAVI_SELECT_ENTRY "WHERE id = $1";
inline constexpr char kFindPath[] = KAVI_SELECT_ENTRY "WHERE path = $1";
inline constexpr char kFindMessage[] = KAVI_SELECT_ENTRY "WHERE message_id = $1 ORDER BY id";

inline constexpr char kListAll[] = KAVI_SELECT_ENTRY "WHERE id > $1 ORDER BY id LIMIT $2";
inline constexpr char kListKind[] =
    KAVI_SELECT_ENTRY "WHERE kind = $1 AND id > $2 ORDER BY id LIMIT $3";
inline constexpr char kListArea[] =
    KAVI_SELECT_ENTRY "WHERE area = $1 AND id > $2 ORDER BY id LIMIT $3";
// The sign keeps the planner on the index of areas, which is the finer one.
inline constexpr char kListKindArea[] =
    KAVI_SELECT_ENTRY "WHERE +kind = $1 AND area = $2 AND id > $3 ORDER BY id LIMIT $4";
inline constexpr char kListExpired[] =
    KAVI_SELECT_ENTRY "WHERE expires_at <= $1 ORDER BY expires_at, id LIMIT $2";
inline constexpr char kListPaths[] =
    "SELECT id, path FROM message_index WHERE path >= $1 AND path < $2 ORDER BY path LIMIT $3";

inline constexpr char kBeginEffect[] =
    "INSERT INTO effect_ledger (effect, message, owner, begun_at, leased_until, done, result) "
    "VALUES ($1, $2, $3, $4, $5, 0, $6) ON CONFLICT (effect) DO NOTHING";
inline constexpr char kFindEffect[] =
    "SELECT owner, leased_until, done, result FROM effect_ledger WHERE effect = $1";
inline constexpr char kTakeOverEffect[] =
    "UPDATE effect_ledger SET owner = $1, begun_at = $2, leased_until = $3, result = $4 "
    "WHERE effect = $5 AND owner = $6 AND done = 0";
inline constexpr char kFinishEffect[] =
    "UPDATE effect_ledger SET done = 1, result = $1 "
    "WHERE effect = $2 AND owner = $3 AND done = 0";
inline constexpr char kAbandonEffect[] =
    "DELETE FROM effect_ledger WHERE effect = $1 AND owner = $2 AND done = 0";
inline constexpr char kReopenEffect[] =
    "DELETE FROM effect_ledger WHERE effect = $1 AND result = $2 AND done = 1";
inline constexpr char kForgetMessage[] = "DELETE FROM effect_ledger WHERE message = $1";
inline constexpr char kForgetBefore[] = "DELETE FROM effect_ledger WHERE begun_at < $1";

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

// A whole policy; the only statements that read tables from end to end.
inline constexpr char kReadObjects[] =
    "SELECT " KAVI_OBJECT_COLUMNS ", content FROM named_object ORDER BY id";
inline constexpr char kReadRules[] =
    "SELECT id, name, position, enabled, condition, on_failure, verdict, verdict_text FROM rule "
    "ORDER BY position";
inline constexpr char kReadActions[] =
    "SELECT rule, position, type, setting FROM rule_action ORDER BY rule, position";
inline constexpr char kReadRuleObjects[] =
    "SELECT rule, action, object FROM rule_object ORDER BY rule, action, position";

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
    kAddRuleObject};

#undef KAVI_SELECT_OBJECT
#undef KAVI_OBJECT_COLUMNS
#undef KAVI_INSERT_ENTRY
#undef KAVI_SELECT_ENTRY
#undef KAVI_ENTRY_COLUMNS

}  // namespace host::store::sql
