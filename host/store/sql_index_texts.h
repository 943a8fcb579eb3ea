// The statements on the index of messages and on the ledger of effects; see sql_texts.h.
#pragma once

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

#undef KAVI_INSERT_ENTRY
#undef KAVI_SELECT_ENTRY
#undef KAVI_ENTRY_COLUMNS

}  // namespace host::store::sql
