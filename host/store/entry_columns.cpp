#include "host/store/entry_columns.h"

#include <limits>
#include <string>

#include "host/store/address_list.h"
#include "host/store/store_failure.h"

namespace host::store {

namespace {

constexpr std::int64_t kSecondsPerDay = 86'400;
constexpr auto kMaxNumber = std::numeric_limits<std::int64_t>::max();

enum Column { Row, Kind, Area, Id, Rule, Days, Sender, Recipients, Subject, Size, Stored, Path };

std::optional<std::int64_t> expiryOf(const IndexEntry& entry) {
  if (!entry.agingDays) return std::nullopt;
  return entry.storedAt + kSecondsPerDay * *entry.agingDays;
}

bool isKind(std::int64_t number) {
  return number >= static_cast<int>(MessageKind::Quarantined) &&
         number <= static_cast<int>(MessageKind::Postponed);
}

[[noreturn]] void damaged(std::int64_t row) {
  throw StoreFailure(StoreError::Damaged, "row " + std::to_string(row) + " of the message index");
}

}  // namespace

void bindEntry(Query& query, const IndexEntry& entry) {
  // Far enough from the largest number for any aging days.
  const bool fits = entry.size <= static_cast<std::uint64_t>(kMaxNumber) &&
                    entry.storedAt <= kMaxNumber / 2 && entry.storedAt >= -kMaxNumber / 2;
  if (!fits || entry.path.empty() || !isKind(static_cast<int>(entry.kind))) {
    throw StoreFailure(StoreError::InvalidArgument, "an entry with a value out of range");
  }
  std::optional<std::int64_t> days;
  if (entry.agingDays) days = *entry.agingDays;
  query.bind(std::int64_t{static_cast<int>(entry.kind)})
      .bind(entry.area)
      .bind(entry.messageId)
      .bind(entry.rule)
      .bindOptional(days)
      .bindOptional(entry.sender)
      .bind(packAddresses(entry.recipients))
      .bind(entry.subject)
      .bind(static_cast<std::int64_t>(entry.size))
      .bind(entry.storedAt)
      .bind(entry.path)
      .bindOptional(expiryOf(entry));
}

IndexEntry readEntry(const Query& query) {
  IndexEntry entry;
  entry.row = query.number(Row);
  const std::int64_t kind = query.number(Kind);
  const std::int64_t size = query.number(Size);
  if (!isKind(kind) || size < 0) damaged(entry.row);
  entry.kind = static_cast<MessageKind>(kind);
  entry.area = query.bytes(Area);
  entry.messageId = query.bytes(Id);
  entry.rule = query.bytes(Rule);
  if (!query.isNull(Days)) entry.agingDays = static_cast<std::uint32_t>(query.number(Days));
  if (!query.isNull(Sender)) entry.sender = query.bytes(Sender);
  if (!unpackAddresses(query.bytes(Recipients), entry.recipients)) damaged(entry.row);
  entry.subject = query.bytes(Subject);
  entry.size = static_cast<std::uint64_t>(size);
  entry.storedAt = query.number(Stored);
  entry.path = query.bytes(Path);
  return entry;
}

}  // namespace host::store
