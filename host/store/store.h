// The store: what has to outlive the process, besides the messages themselves.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/store/effect_ledger.h"
#include "host/store/message_index.h"
#include "host/store/policy_store.h"
#include "host/store/store_observer.h"
#include "host/store/store_status.h"
#include "library/platform/api.h"

namespace host::store {

/// Opens itself with the first operation, and again when it failed or was lost: a store that was
/// away serves again as soon as it is back.
class KAVI_API Store : public MessageIndex, public EffectLedger {
 public:
  /// Makes the store when it is missing, brings it to this version's form when it is older, and
  /// says whether it can be used.
  virtual StoreStatus prepare() = 0;

  /// Has \p observer hear of failures from now on; null ends that. Before other threads use the
  /// store. It must outlive the store. Stores without a database may tell nothing.
  virtual void observe(StoreObserver* /*observer*/) {}
};

/// Which form the tables of a database have.
struct StoreForm {
  std::int64_t version = 0;  ///< 0: there is no store
  std::int64_t newest = 0;   ///< what this program knows
};

/// All that one database keeps.
class KAVI_API Database : public Store, public PolicyStore {
 public:
  /// Looks at the database without making it or bringing it to another form.
  /// \return TooNew, Damaged when it is another program's
  virtual StoreStatus readForm(StoreForm& form) = 0;

  /// What to call the database in messages; without secrets.
  virtual const std::string& location() const = 0;
};

/// The database that \p location names: "sqlite:PATH" or "postgresql://...".
/// \return null, with \p status saying why, when it names none. The database itself is not
///   touched.
KAVI_API std::unique_ptr<Database> makeStore(const std::string& location, StoreStatus& status,
                                             Upkeep upkeep = Upkeep::MakeAndMigrate);

/// An empty database in memory, gone with the object: for rules that somebody keeps elsewhere. One
/// thread at a time.
KAVI_API std::unique_ptr<Database> makeMemoryStore();

}  // namespace host::store
