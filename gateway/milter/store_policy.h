// A policy from a store.
#pragma once

#include <memory>
#include <string>

#include "gateway/milter/policy_source.h"
#include "host/store/store.h"

namespace gateway::milter {

/// Asks the store before every message whether its policy has changed, and reads it anew when it
/// has; other messages wait meanwhile. While the store cannot be asked there is no policy: it may
/// have changed, and nobody would know.
class StorePolicy final : public PolicySource {
 public:
  /// \param store  one that is not made when it is missing (Upkeep::Refuse)
  explicit StorePolicy(std::unique_ptr<host::store::Database> store);

  PolicyReading read() override;
  std::shared_ptr<const policy::Snapshot> forMessage(std::string& fault) override;

 private:
  /// Brings the policy in force up to date. \return why that cannot be; empty for success.
  std::string update();

  const std::unique_ptr<host::store::Database> store_;
};

}  // namespace gateway::milter
