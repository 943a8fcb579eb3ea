// The list of the messages that were put aside.
#include <optional>
#include <utility>

#include "host/store/entry_columns.h"
#include "host/store/sql_store.h"
#include "host/store/sql_support.h"
#include "host/store/sql_texts.h"

namespace host::store {

namespace {

constexpr char kIndexChange[] = "changing the message index";
constexpr char kIndexRead[] = "reading the message index";

std::vector<IndexEntry> readEntries(Query& query) {
  std::vector<IndexEntry> entries;
  while (query.next()) entries.push_back(readEntry(query));
  return entries;
}

IndexEntry readOne(Query& query) {
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

}  // namespace

StoreStatus SqlStore::addEntry(const IndexEntry& entry, const Finishes* finishes,
                               std::int64_t& row) {
  std::int64_t added = 0;
  StoreStatus status = run(kIndexChange, Access::Write, [&](Connection& connection) {
    {
      Query query(connection, sql::kAddEntry);
      bindEntry(query, entry);
      if (!query.next()) throw StoreFailure(StoreError::Internal, "a row without a number");
      added = query.number(0);
      query.next();
    }
    if (finishes != nullptr)
      finishHeld(connection, finishes->key, finishes->owner, finishes->result);
  });
  if (status.ok()) row = added;
  return status;
}

StoreStatus SqlStore::addMissing(const IndexEntry& entry, bool& added) {
  int rows = 0;
  StoreStatus status = run(kIndexChange, Access::Write, [&](Connection& connection) {
    Query query(connection, sql::kAddMissing);
    bindEntry(query, entry);
    rows = query.run();
  });
  if (status.ok()) added = rows != 0;
  return status;
}

StoreStatus SqlStore::removeEntry(std::int64_t row) {
  return run(kIndexChange, Access::Write, [&](Connection& connection) {
    requireChange(Query(connection, sql::kRemoveEntry).bind(row).run());
  });
}

StoreStatus SqlStore::removePath(const std::string& path) {
  return run(kIndexChange, Access::Write, [&](Connection& connection) {
    requireChange(Query(connection, sql::kRemovePath).bind(path).run());
  });
}

StoreStatus SqlStore::findEntry(std::int64_t row, IndexEntry& entry) {
  return run(kIndexRead, Access::Single, [&](Connection& connection) {
    Query query(connection, sql::kFindEntry);
    entry = readOne(query.bind(row));
  });
}

StoreStatus SqlStore::findPath(const std::string& path, IndexEntry& entry) {
  return run(kIndexRead, Access::Single, [&](Connection& connection) {
    Query query(connection, sql::kFindPath);
    entry = readOne(query.bind(path));
  });
}

StoreStatus SqlStore::findMessage(const std::string& messageId, std::vector<IndexEntry>& entries) {
  return run(kIndexRead, Access::Single, [&](Connection& connection) {
    Query query(connection, sql::kFindMessage);
    entries = readEntries(query.bind(messageId));
  });
}

StoreStatus SqlStore::list(const IndexPage& page, std::vector<IndexEntry>& entries) {
  return run(kIndexRead, Access::Single, [&](Connection& connection) {
    const char* text = page.area ? sql::kListArea : sql::kListAll;
    if (page.kind) text = page.area ? sql::kListKindArea : sql::kListKind;
    Query query(connection, text);
    if (page.kind) query.bind(std::int64_t{static_cast<int>(*page.kind)});
    if (page.area) query.bind(*page.area);
    entries = readEntries(query.bind(page.afterRow).bind(limitOf(page.limit)));
  });
}

StoreStatus SqlStore::listExpired(std::int64_t now, std::size_t limit,
                                  std::vector<IndexEntry>& entries) {
  return run(kIndexRead, Access::Single, [&](Connection& connection) {
    Query query(connection, sql::kListExpired);
    entries = readEntries(query.bind(now).bind(limitOf(limit)));
  });
}

StoreStatus SqlStore::listPaths(const std::string& prefix, const std::string& after,
                                std::size_t limit, std::vector<IndexPath>& paths) {
  return run(kIndexRead, Access::Single, [&](Connection& connection) {
    const std::optional<std::string> end = endOf(prefix);
    if (!end) throw StoreFailure(StoreError::InvalidArgument, "a prefix that begins no path");
    // The smallest text behind `after` is the same with a NUL.
    const std::string begin = after < prefix ? prefix : after + '\0';
    Query query(connection, sql::kListPaths);
    query.bind(begin).bind(*end).bind(limitOf(limit));
    std::vector<IndexPath> found;
    while (query.next()) found.push_back({query.number(0), query.bytes(1)});
    paths.swap(found);
  });
}

}  // namespace host::store
