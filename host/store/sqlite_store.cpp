#include "host/store/sqlite_store.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "host/store/entry_columns.h"
#include "host/store/sql_texts.h"
#include "host/store/store_failure.h"

namespace host::store {

namespace {

constexpr char kIndexChange[] = "changing the message index";
constexpr char kIndexRead[] = "reading the message index";
constexpr char kLedgerChange[] = "changing the effect ledger";

std::string_view bytesOf(const Digest& digest) {
  return {reinterpret_cast<const char*>(digest.data()), digest.size()};
}

std::int64_t limitOf(std::size_t limit) {
  constexpr auto kMost = static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max());
  return static_cast<std::int64_t>(std::min(limit, kMost));
}

// Whether the connection can go on serving after this error.
bool staysUsable(StoreError error) {
  return error == StoreError::Busy || error == StoreError::Conflict ||
         error == StoreError::NotFound || error == StoreError::InvalidArgument ||
         error == StoreError::Full;
}

void requireChange(int rows) {
  if (rows == 0) throw StoreFailure(StoreError::NotFound, {});
}

std::vector<IndexEntry> readEntries(SqliteQuery& query) {
  std::vector<IndexEntry> entries;
  while (query.next()) entries.push_back(readEntry(query));
  return entries;
}

IndexEntry readOne(SqliteQuery& query) {
  if (!query.next()) throw StoreFailure(StoreError::NotFound, {});
  return readEntry(query);
}

// The first text, as bytes, behind all those that begin with `prefix`; nothing if there is none.
std::optional<std::string> endOf(std::string prefix) {
  while (!prefix.empty() && static_cast<unsigned char>(prefix.back()) == 0xFF) prefix.pop_back();
  if (prefix.empty()) return std::nullopt;
  prefix.back() = static_cast<char>(static_cast<unsigned char>(prefix.back()) + 1);
  return prefix;
}

void finish(SqliteConnection& connection, const EffectKey& key, const std::string& owner,
            const std::string& result) {
  SqliteQuery query(connection, sql::kFinishEffect);
  query.bind(result).bind(bytesOf(key.effect)).bind(owner);
  if (query.run() == 0) throw StoreFailure(StoreError::Conflict, "the effect has another owner");
}

bool begin(SqliteConnection& connection, const EffectKey& key, const EffectClaim& claim) {
  SqliteQuery query(connection, sql::kBeginEffect);
  query.bind(bytesOf(key.effect))
      .bind(bytesOf(key.message))
      .bind(claim.owner)
      .bind(claim.now)
      .bind(claim.now + claim.leaseSeconds)
      .bind(claim.intended);
  return query.run() != 0;
}

bool takeOver(SqliteConnection& connection, const EffectKey& key, const EffectClaim& claim,
              const std::string& fromOwner) {
  SqliteQuery query(connection, sql::kTakeOverEffect);
  query.bind(claim.owner)
      .bind(claim.now)
      .bind(claim.now + claim.leaseSeconds)
      .bind(claim.intended)
      .bind(bytesOf(key.effect))
      .bind(fromOwner);
  return query.run() != 0;
}

// What became of an effect that somebody has begun before.
EffectAnswer resume(SqliteConnection& connection, const EffectKey& key, const EffectClaim& claim) {
  std::string owner;
  std::string result;
  {
    SqliteQuery query(connection, sql::kFindEffect);
    query.bind(bytesOf(key.effect));
    if (!query.next()) throw StoreFailure(StoreError::Internal, "an effect that went away");
    result = query.bytes(3);
    if (query.number(2) != 0) return {EffectState::Finished, std::move(result)};
    if (query.number(1) > claim.now) return {EffectState::UnderWay, {}};
    owner = query.bytes(0);
  }
  if (!takeOver(connection, key, claim, owner)) return {EffectState::UnderWay, {}};
  return {EffectState::TakenOver, std::move(result)};
}

}  // namespace

SqliteStore::SqliteStore(const std::string& path, const SqliteOptions& options, core::FileOps& ops)
    : pool_(path, options.busyTimeoutMs, ops) {}

SqliteStore::~SqliteStore() = default;

void SqliteStore::runOn(SqliteConnection& connection, Access access, const Work& work) {
  if (access == Access::Read) {
    work(connection);
    return;
  }
  const std::lock_guard lock(writing_);
  SqliteTransaction transaction(connection);
  work(connection);
  transaction.commit();
}

StoreStatus SqliteStore::run(const char* doing, Access access, const Work& work) {
  StoreStatus status;
  try {
    std::unique_ptr<SqliteConnection> connection;
    std::string detail;
    try {
      connection = pool_.take();
      runOn(*connection, access, work);
    } catch (const StoreFailure& failure) {
      status.error = failure.error();
      detail = failure.what();
    } catch (const SQLite::Exception& fault) {
      status.error = sqliteErrorOf(fault);
      detail = fault.what();
    }
    if (connection != nullptr && (status.ok() || staysUsable(status.error))) {
      pool_.giveBack(std::move(connection));
    }
    if (!status.ok()) status.text = failureText(doing, pool_.path(), status.error, detail);
  } catch (const std::bad_alloc&) {
    status.error = StoreError::OutOfMemory;
  } catch (...) {
    status.error = StoreError::Internal;
  }
  return status;
}

StoreStatus SqliteStore::prepare() {
  return run("opening the store", Access::Read, [](SqliteConnection&) {});
}

StoreStatus SqliteStore::addEntry(const IndexEntry& entry, const Finishes* finishes,
                                  std::int64_t& row) {
  std::int64_t added = 0;
  StoreStatus status = run(kIndexChange, Access::Write, [&](SqliteConnection& connection) {
    {
      SqliteQuery query(connection, sql::kAddEntry);
      bindEntry(query, entry);
      if (!query.next()) throw StoreFailure(StoreError::Internal, "a row without a number");
      added = query.number(0);
      query.next();
    }
    if (finishes != nullptr) finish(connection, finishes->key, finishes->owner, finishes->result);
  });
  if (status.ok()) row = added;
  return status;
}

StoreStatus SqliteStore::addMissing(const IndexEntry& entry, bool& added) {
  int rows = 0;
  StoreStatus status = run(kIndexChange, Access::Write, [&](SqliteConnection& connection) {
    SqliteQuery query(connection, sql::kAddMissing);
    bindEntry(query, entry);
    rows = query.run();
  });
  if (status.ok()) added = rows != 0;
  return status;
}

StoreStatus SqliteStore::removeEntry(std::int64_t row) {
  return run(kIndexChange, Access::Write, [&](SqliteConnection& connection) {
    requireChange(SqliteQuery(connection, sql::kRemoveEntry).bind(row).run());
  });
}

StoreStatus SqliteStore::removePath(const std::string& path) {
  return run(kIndexChange, Access::Write, [&](SqliteConnection& connection) {
    requireChange(SqliteQuery(connection, sql::kRemovePath).bind(path).run());
  });
}

StoreStatus SqliteStore::findEntry(std::int64_t row, IndexEntry& entry) {
  return run(kIndexRead, Access::Read, [&](SqliteConnection& connection) {
    SqliteQuery query(connection, sql::kFindEntry);
    entry = readOne(query.bind(row));
  });
}

StoreStatus SqliteStore::findPath(const std::string& path, IndexEntry& entry) {
  return run(kIndexRead, Access::Read, [&](SqliteConnection& connection) {
    SqliteQuery query(connection, sql::kFindPath);
    entry = readOne(query.bind(path));
  });
}

StoreStatus SqliteStore::findMessage(const std::string& messageId,
                                     std::vector<IndexEntry>& entries) {
  return run(kIndexRead, Access::Read, [&](SqliteConnection& connection) {
    SqliteQuery query(connection, sql::kFindMessage);
    entries = readEntries(query.bind(messageId));
  });
}

StoreStatus SqliteStore::list(const IndexPage& page, std::vector<IndexEntry>& entries) {
  return run(kIndexRead, Access::Read, [&](SqliteConnection& connection) {
    const char* text = page.area ? sql::kListArea : sql::kListAll;
    if (page.kind) text = page.area ? sql::kListKindArea : sql::kListKind;
    SqliteQuery query(connection, text);
    if (page.kind) query.bind(std::int64_t{static_cast<int>(*page.kind)});
    if (page.area) query.bind(*page.area);
    entries = readEntries(query.bind(page.afterRow).bind(limitOf(page.limit)));
  });
}

StoreStatus SqliteStore::listExpired(std::int64_t now, std::size_t limit,
                                     std::vector<IndexEntry>& entries) {
  return run(kIndexRead, Access::Read, [&](SqliteConnection& connection) {
    SqliteQuery query(connection, sql::kListExpired);
    entries = readEntries(query.bind(now).bind(limitOf(limit)));
  });
}

StoreStatus SqliteStore::listPaths(const std::string& prefix, const std::string& after,
                                   std::size_t limit, std::vector<IndexPath>& paths) {
  return run(kIndexRead, Access::Read, [&](SqliteConnection& connection) {
    const std::optional<std::string> end = endOf(prefix);
    if (!end) throw StoreFailure(StoreError::InvalidArgument, "a prefix that begins no path");
    // The smallest text behind `after` is the same with a NUL.
    const std::string begin = after < prefix ? prefix : after + '\0';
    SqliteQuery query(connection, sql::kListPaths);
    query.bind(begin).bind(*end).bind(limitOf(limit));
    std::vector<IndexPath> found;
    while (query.next()) found.push_back({query.number(0), query.bytes(1)});
    paths.swap(found);
  });
}

StoreStatus SqliteStore::beginEffect(const EffectKey& key, const EffectClaim& claim,
                                     EffectAnswer& answer) {
  EffectAnswer found;
  StoreStatus status = run(kLedgerChange, Access::Write, [&](SqliteConnection& connection) {
    found = EffectAnswer{};
    if (!begin(connection, key, claim)) found = resume(connection, key, claim);
  });
  if (status.ok()) answer = std::move(found);
  return status;
}

StoreStatus SqliteStore::finishEffect(const EffectKey& key, const std::string& owner,
                                      const std::string& result) {
  return run(kLedgerChange, Access::Write,
             [&](SqliteConnection& connection) { finish(connection, key, owner, result); });
}

StoreStatus SqliteStore::abandonEffect(const EffectKey& key, const std::string& owner) {
  return run(kLedgerChange, Access::Write, [&](SqliteConnection& connection) {
    SqliteQuery(connection, sql::kAbandonEffect).bind(bytesOf(key.effect)).bind(owner).run();
  });
}

StoreStatus SqliteStore::reopenEffect(const EffectKey& key, const std::string& result) {
  return run(kLedgerChange, Access::Write, [&](SqliteConnection& connection) {
    SqliteQuery(connection, sql::kReopenEffect).bind(bytesOf(key.effect)).bind(result).run();
  });
}

StoreStatus SqliteStore::forgetMessage(const Digest& message) {
  return run(kLedgerChange, Access::Write, [&](SqliteConnection& connection) {
    SqliteQuery(connection, sql::kForgetMessage).bind(bytesOf(message)).run();
  });
}

StoreStatus SqliteStore::forgetBefore(std::int64_t time, std::size_t& dropped) {
  std::size_t rows = 0;
  StoreStatus status = run(kLedgerChange, Access::Write, [&](SqliteConnection& connection) {
    rows = static_cast<std::size_t>(SqliteQuery(connection, sql::kForgetBefore).bind(time).run());
  });
  if (status.ok()) dropped = rows;
  return status;
}

}  // namespace host::store
