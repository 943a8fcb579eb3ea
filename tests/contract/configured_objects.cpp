// The platform's operations on a real store.
#include "host/store/configured_store.h"
#include "tests/contract/subjects.h"

namespace contract {

ObjectsInUse useObjects(const std::string& folder) {
  const std::shared_ptr<host::store::PolicyStore> store = makePolicyStore(folder);
  host::store::configureStore(store, "contract");
  return {store.get(), [store](host::store::PolicyStore* /*same*/) {
            host::store::configureStore(nullptr, {});
          }};
}

}  // namespace contract
