// The list of the messages that were put aside: quarantined, archived, postponed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/store/effect_ledger.h"
#include "host/store/store_status.h"
#include "library/platform/api.h"

namespace host::store {

/// Stored, so the numbers never change.
enum class MessageKind : int { Quarantined = 1, Archived = 2, Postponed = 3 };

/// One message that lies somewhere. Texts may hold any bytes.
struct IndexEntry {
  std::int64_t row = 0;  ///< given by the index, above 0, never given again
  MessageKind kind = MessageKind::Quarantined;
  std::string area;
  std::string messageId;
  std::string rule;                        ///< id of the rule; may be empty
  std::optional<std::uint32_t> agingDays;  ///< nothing: kept for good
  std::optional<std::string> sender;       ///< "" is the null sender; nothing: unknown
  std::vector<std::string> recipients;     ///< in envelope order
  std::string subject;
  std::uint64_t size = 0;     ///< of the stored copy, in bytes; at most 2^63 - 1
  std::int64_t storedAt = 0;  ///< seconds since 1970
  std::string path;           ///< of the stored copy; no two rows have the same

  bool operator==(const IndexEntry&) const = default;
};

/// One page of a listing, ordered by row.
struct IndexPage {
  std::optional<MessageKind> kind;  ///< nothing: every kind
  std::optional<std::string> area;  ///< nothing: every area
  std::int64_t afterRow = 0;        ///< the last row of the page before
  std::size_t limit = 100;
};

struct IndexPath {
  std::int64_t row = 0;
  std::string path;

  bool operator==(const IndexPath&) const = default;
};

/// Durable: what an operation did survives a power cut once it has succeeded. Safe from any thread
/// and from several processes. After a failure nothing has changed and outputs are as they were.
class KAVI_API MessageIndex {
 public:
  virtual ~MessageIndex() = default;

  /// What `addEntry` marks as done in the same transaction as the row.
  struct Finishes {
    EffectKey key;
    std::string owner;
    std::string result;
  };

  /// Adds a row; one that has its path already is replaced.
  /// \param finishes  an effect to be finished with it; may be null. Conflict, and no row, when
  ///   its owner no longer holds it.
  /// \param row  receives the new row's number.
  virtual StoreStatus addEntry(const IndexEntry& entry, const Finishes* finishes,
                               std::int64_t& row) = 0;

  /// Adds a row unless there is one with its path.
  /// \param added  receives whether there was none.
  virtual StoreStatus addMissing(const IndexEntry& entry, bool& added) = 0;

  /// NotFound when there is none.
  virtual StoreStatus removeEntry(std::int64_t row) = 0;
  virtual StoreStatus removePath(const std::string& path) = 0;

  /// NotFound when there is none.
  virtual StoreStatus findEntry(std::int64_t row, IndexEntry& entry) = 0;
  virtual StoreStatus findPath(const std::string& path, IndexEntry& entry) = 0;
  /// Every row of a message id, by row; there may be several, or none.
  virtual StoreStatus findMessage(const std::string& messageId,
                                  std::vector<IndexEntry>& entries) = 0;

  virtual StoreStatus list(const IndexPage& page, std::vector<IndexEntry>& entries) = 0;

  /// The rows whose aging days were over at \p now (seconds since 1970), those due first in front.
  virtual StoreStatus listExpired(std::int64_t now, std::size_t limit,
                                  std::vector<IndexEntry>& entries) = 0;

  /// The rows whose path begins with \p prefix (not empty) and sorts, as bytes, behind \p after, in
  /// that order.
  virtual StoreStatus listPaths(const std::string& prefix, const std::string& after,
                                std::size_t limit, std::vector<IndexPath>& paths) = 0;
};

}  // namespace host::store
