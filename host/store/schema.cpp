#include "host/store/schema.h"

#include <string>

#include "host/store/store_failure.h"

namespace host::store {

namespace {

constexpr char kReadVersion[] = "SELECT version FROM kavi_schema";
constexpr char kWriteVersion[] = "UPDATE kavi_schema SET version = $1";
constexpr char kVersionTable[] = "kavi_schema";

std::int64_t readVersion(Connection& connection) {
  // In this order: all tables of a store may appear between the two looks.
  const bool isEmpty = connection.countTables() == 0;
  if (connection.countTables(kVersionTable) == 0) {
    if (isEmpty) return 0;
    throw StoreFailure(StoreError::Damaged, "it is the database of another program");
  }
  Query query(connection, kReadVersion);
  if (!query.next()) throw StoreFailure(StoreError::Damaged, "its version is missing");
  const std::int64_t version = query.number(0);
  if (version < 1) throw StoreFailure(StoreError::Damaged, "its version is no version");
  return version;
}

}  // namespace

std::span<const SchemaStep> schemaSteps() {
  // Texts that go over several lines are meant to. NOLINTBEGIN(bugprone-suspicious-missing-comma)
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
      {
          "CREATE TABLE policy_state (revision BIGINT NOT NULL, last_object BIGINT NOT NULL)",
          "INSERT INTO policy_state (revision, last_object) VALUES (0, 0)",
          "CREATE TABLE named_object (id BIGINT PRIMARY KEY, owner BIGINT NOT NULL, "
          "type BIGINT NOT NULL, name {bytes} NOT NULL, content {bytes} NOT NULL, "
          "built_in INTEGER NOT NULL, created_at BIGINT NOT NULL, changed_at BIGINT NOT NULL, "
          "UNIQUE (owner, type, name))",
          "CREATE INDEX named_object_type ON named_object (type, id)",
          "CREATE INDEX named_object_owner ON named_object (owner, id)",
          "CREATE INDEX named_object_owner_type ON named_object (owner, type, id)",
          "CREATE TABLE rule (id BIGINT PRIMARY KEY, name {bytes} NOT NULL, "
          "position BIGINT NOT NULL UNIQUE, enabled INTEGER NOT NULL, condition {bytes} NOT NULL)",
          "CREATE TABLE rule_action (rule BIGINT NOT NULL REFERENCES rule (id) ON DELETE CASCADE, "
          "position INTEGER NOT NULL, type INTEGER NOT NULL, setting {bytes} NOT NULL, "
          "PRIMARY KEY (rule, position))",
          "CREATE TABLE rule_object (rule BIGINT NOT NULL, action INTEGER NOT NULL, "
          "position INTEGER NOT NULL, object BIGINT NOT NULL REFERENCES named_object (id), "
          "PRIMARY KEY (rule, action, position), FOREIGN KEY (rule, action) "
          "REFERENCES rule_action (rule, position) ON DELETE CASCADE)",
          "CREATE INDEX rule_object_object ON rule_object (object, rule)",
          "CREATE TABLE policy_audit (id {row}, revision BIGINT NOT NULL, at BIGINT NOT NULL, "
          "actor {bytes} NOT NULL, what {bytes} NOT NULL)",
      },
      {
          "ALTER TABLE rule ADD COLUMN on_failure INTEGER NOT NULL DEFAULT 0",
          "ALTER TABLE rule ADD COLUMN verdict INTEGER NOT NULL DEFAULT 0",
          // Without a default, which the databases would write each in a way of its own.
          "ALTER TABLE rule ADD COLUMN verdict_text {bytes}",
      },
      {
          // A server's index takes some 2,700 bytes of a row; a digest has 32 for names of any
          // length. The other database's index takes whole names and stays.
          "{server}ALTER TABLE named_object DROP CONSTRAINT named_object_owner_type_name_key",
          "{server}CREATE UNIQUE INDEX named_object_name ON named_object "
          "(owner, type, {digest}(name))",
      },
  };
  // NOLINTEND(bugprone-suspicious-missing-comma)
  return kSteps;
}

std::int64_t versionOf(Connection& connection, std::span<const SchemaStep> steps) {
  const std::int64_t version = readVersion(connection);
  const auto newest = static_cast<std::int64_t>(steps.size());
  if (version > newest) {
    throw StoreFailure(StoreError::TooNew, "it has version " + std::to_string(version) +
                                               ", this program knows versions up to " +
                                               std::to_string(newest));
  }
  return version;
}

bool isNewest(Connection& connection, std::span<const SchemaStep> steps) {
  return versionOf(connection, steps) == static_cast<std::int64_t>(steps.size());
}

void requireNewest(Connection& connection, std::span<const SchemaStep> steps) {
  const std::int64_t version = versionOf(connection, steps);
  if (version == 0) throw StoreFailure(StoreError::Unavailable, kMissingStore);
  if (version != static_cast<std::int64_t>(steps.size())) {
    throw StoreFailure(StoreError::Unavailable,
                       "it has version " + std::to_string(version) + ", this program needs " +
                           std::to_string(steps.size()) + "; kavi store migrate brings it there");
  }
}

void migrate(Connection& connection, std::span<const SchemaStep> steps) {
  const auto newest = static_cast<std::int64_t>(steps.size());
  if (isNewest(connection, steps)) return;
  Transaction transaction(connection, TransactionMode::Write);
  connection.lockTables();
  // Whoever held the lock before may have done it.
  const std::int64_t from = versionOf(connection, steps);
  if (from == newest) return;
  for (const SchemaStep& step : steps.subspan(static_cast<std::size_t>(from))) {
    for (const std::string_view text : step) {
      const std::string words = connection.inDialect(text);
      if (!words.empty()) connection.execute(words);
    }
  }
  Query(connection, kWriteVersion).bind(newest).run();
  transaction.commit();
}

}  // namespace host::store
