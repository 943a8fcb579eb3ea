#include "gateway/cli/policy_setup.h"

#include <memory>

#include "gateway/cli/startup.h"
#include "gateway/cli/store_setup.h"
#include "host/core/text_escape.h"

namespace gateway::cli {

bool namesPolicy(const PolicyOptions& options, Kavi::GlobalSetting& settings) {
  std::string location;
  return !options.file.empty() || !options.store.empty() ||
         (settings.getString("location", location, "store", 0) == 0 && !location.empty());
}

policy::StoredPolicy loadPolicy(const PolicyOptions& options, Kavi::GlobalSetting& settings) {
  if (!namesPolicy(options, settings)) {
    complain(
        "no policy is named (write --policy FILE or --store sqlite:PATH, or location in section "
        "store of the settings file of --config)");
    return {};
  }
  if (!options.file.empty()) {
    policy::Diagnostics diagnostics(options.file);
    policy::StoredPolicy policy = policy::loadFromFile(options.file, diagnostics);
    complain(diagnostics);
    return policy;
  }
  const std::shared_ptr<host::store::Database> store = openStore(options.store, settings);
  if (store == nullptr) return {};
  policy::Diagnostics diagnostics("store " + host::core::printable(store->location()));
  policy::StoredPolicy policy = policy::loadFromStore(*store, diagnostics);
  complain(diagnostics);
  return policy;
}

}  // namespace gateway::cli
