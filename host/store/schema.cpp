#include "host/store/schema.h"

#include <string>
#include <utility>

#include "host/store/store_failure.h"

namespace host::store {

namespace {

constexpr char kReadVersion[] = "SELECT version FROM kavi_schema";
constexpr char kWriteVersion[] = "UPDATE kavi_schema SET version = $1";
constexpr char kCountTables[] = "SELECT count(*) FROM sqlite_schema WHERE name = 'kavi_schema'";
constexpr char kCountOthers[] = "SELECT count(*) FROM sqlite_schema";

std::string inDialect(std::string_view text) {
  constexpr std::pair<std::string_view, std::string_view> kTypes[] = {
      {"{bytes}", "BLOB"}, {"{row}", "INTEGER PRIMARY KEY AUTOINCREMENT"}};
  std::string out(text);
  for (const auto& [name, type] : kTypes) {
    for (std::size_t at = out.find(name); at != std::string::npos; at = out.find(name, at)) {
      out.replace(at, name.size(), type);
      at += type.size();
    }
  }
  return out;
}

std::int64_t count(SqliteConnection& connection, const char* text) {
  SqliteQuery query(connection, text);
  query.next();
  return query.number(0);
}

// The version of the tables; 0 when there are none at all.
std::int64_t versionOf(SqliteConnection& connection) {
  if (count(connection, kCountTables) == 0) {
    if (count(connection, kCountOthers) == 0) return 0;
    throw StoreFailure(StoreError::Damaged, "the file is the database of another program");
  }
  SqliteQuery query(connection, kReadVersion);
  if (!query.next()) throw StoreFailure(StoreError::Damaged, "its version is missing");
  const std::int64_t version = query.number(0);
  if (version < 1) throw StoreFailure(StoreError::Damaged, "its version is no version");
  return version;
}

bool isCurrent(std::int64_t version, std::size_t known) {
  const auto newest = static_cast<std::int64_t>(known);
  if (version > newest) {
    throw StoreFailure(StoreError::TooNew, "it has version " + std::to_string(version) +
                                               ", this program knows versions up to " +
                                               std::to_string(newest));
  }
  return version == newest;
}

}  // namespace

std::span<const SchemaStep> schemaSteps() {
  static const std::vector<SchemaStep> kSteps = {
      {
          "CREATE TABLE kavi_schema (version INTEGER NOT NULL)",
          "INSERT INTO kavi_schema (version) VALUES (1)",
          "CREATE TABLE message_index (id {row}, kind INTEGER NOT NULL, area {bytes} NOT NULL, "
          "message_id {bytes} NOT NULL, rule {bytes} NOT NULL, aging_days BIGINT, "
          "sender {bytes}, recipients {bytes} NOT NULL, subject {bytes} NOT NULL, "
          "size BIGINT NOT NULL, stored_at BIGINT NOT NULL, expires_at BIGINT, "
          "path {bytes} NOT NULL UNIQUE)",
          "CREATE INDEX message_index_kind ON message_index (kind, id)",
          "CREATE INDEX message_index_area ON message_index (area, id)",
          "CREATE INDEX message_index_message ON message_index (message_id)",
          "CREATE INDEX message_index_expiry ON message_index (expires_at, id)",
          "CREATE TABLE effect_ledger (effect {bytes} PRIMARY KEY, message {bytes} NOT NULL, "
          "owner {bytes} NOT NULL, begun_at BIGINT NOT NULL, leased_until BIGINT NOT NULL, "
          "done INTEGER NOT NULL, result {bytes} NOT NULL)",
          "CREATE INDEX effect_ledger_message ON effect_ledger (message)",
      },
  };
  return kSteps;
}

void migrate(SqliteConnection& connection, std::span<const SchemaStep> steps) {
  if (isCurrent(versionOf(connection), steps.size())) return;
  SqliteTransaction transaction(connection);
  // Whoever held the lock before may have done it.
  const std::int64_t from = versionOf(connection);
  if (isCurrent(from, steps.size())) return;
  for (const SchemaStep& step : steps.subspan(static_cast<std::size_t>(from))) {
    for (const std::string_view text : step) connection.database().exec(inDialect(text));
  }
  SqliteQuery(connection, kWriteVersion).bind(static_cast<std::int64_t>(steps.size())).run();
  transaction.commit();
}

}  // namespace host::store
