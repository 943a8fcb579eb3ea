// What the contract suite runs on. It is compiled once and linked with one implementation of these
// functions on the fakes and with one on the real thing.
#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "host/store/store.h"
#include "library/platform/is_adapter.h"
#include "library/platform/ov_msg_mail_message.h"

namespace contract {

/// An empty store. \param folder  one that it may use; goes behind it
std::unique_ptr<host::store::Store> makeStore(const std::string& folder);

/// Another one, for named objects and rules.
std::unique_ptr<host::store::PolicyStore> makePolicyStore(const std::string& folder);

/// The store behind the platform's operations on named objects; null where they have none of their
/// own kind. Goes from behind them with the last copy.
using ObjectsInUse = std::shared_ptr<host::store::PolicyStore>;

/// Puts an empty store there. \param folder  as above
ObjectsInUse useObjects(const std::string& folder);

/// An adapter, a message for it, and a folder to file under.
class AdapterBench {
 public:
  virtual ~AdapterBench() = default;
  virtual OvIsAdapter& adapter() = 0;
  virtual OvMsgMailMessage& message() = 0;
  virtual const std::string& folder() = 0;
  /// Makes every operation fail from now on.
  virtual void breakDown() = 0;
  /// Whether the adapter can do \p operation at all ("Delete", "Handoff", ...); one that cannot
  /// fails like any other.
  virtual bool offers(const std::string& operation) const;
  /// The message's envelope on one line; empty for a message without one.
  virtual std::string envelope() const;
};

/// One kind of adapter. The real ones are more than one.
struct AdapterKind {
  const char* name;
  std::unique_ptr<AdapterBench> (*makeBench)();
};

/// Names the kind in the names of tests.
inline void PrintTo(const AdapterKind& kind, std::ostream* out) { *out << kind.name; }

std::vector<AdapterKind> adapterKinds();

}  // namespace contract
