// The library and the store together, for commands that look into what is stored.
#pragma once

#include <memory>

#include "gateway/cli/startup.h"
#include "gateway/cli/store_setup.h"

namespace gateway::cli {

struct StoreSession {
  std::unique_ptr<Startup> startup;
  std::shared_ptr<host::store::Database> store;

  /// \return the exit status, after a complaint when it is not ExitDone
  int open(const StoreOptions& options) {
    startup = Startup::begin(options.config);
    return startup != nullptr ? openStore(options, store) : static_cast<int>(ExitUsage);
  }
};

}  // namespace gateway::cli
