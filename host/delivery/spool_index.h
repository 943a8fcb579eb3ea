// The rows of the index for the messages that wait for their time.
#pragma once

#include <string>

#include "host/delivery/spool_entry.h"
#include "host/store/message_index.h"

class OvMsgMailMessage;

namespace host::delivery {

/// A row says: postponed, under the name of this host as its area, by which rule, and where the
/// spool's file lies. It is there from when the message was filed until it has gone. Safe from any
/// thread.
class KAVI_API SpoolIndex {
 public:
  /// \param index   must outlive this object
  /// \param folder  of the spool
  SpoolIndex(store::MessageIndex& index, const std::string& folder);

  /// Adds the row of the entry \p id. \param finishes  as in MessageIndex::addEntry
  store::StoreStatus add(const std::string& id, const SpoolEntry& entry, OvMsgMailMessage& msg,
                         const store::MessageIndex::Finishes* finishes);
  /// The same unless it is there. \param added  receives whether it was not
  store::StoreStatus addMissing(const std::string& id, const SpoolEntry& entry,
                                OvMsgMailMessage& msg, bool& added);
  /// \param present  receives whether the entry \p id has a row
  store::StoreStatus has(const std::string& id, bool& present);
  /// Good, too, when there is none.
  store::StoreStatus remove(const std::string& id);

  store::MessageIndex& index() { return index_; }
  const std::string& area() const { return area_; }
  /// The id of the entry whose row has \p path; empty for a path outside the spool.
  std::string idIn(const std::string& path) const;

 private:
  std::string pathOf(const std::string& id) const;
  store::IndexEntry rowFor(const std::string& id, const SpoolEntry& entry,
                           OvMsgMailMessage& msg) const;

  store::MessageIndex& index_;
  std::string folder_;  ///< absolute
  std::string area_;
};

}  // namespace host::delivery
