// The policy in force.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "gateway/policy/snapshot.h"

namespace gateway::milter {

/// Reads the policy file and keeps what came of it. Every message takes the snapshot once, so that
/// none meets two policies. Safe from any thread.
class PolicySource {
 public:
  explicit PolicySource(std::string path) : path_(std::move(path)) {}

  /// Reads the file. \param faults  receives every error and doubt, a line each
  /// \return null when there are errors.
  std::shared_ptr<const policy::Snapshot> load(std::vector<std::string>& faults) const;

  /// From now on messages get \p snapshot.
  void use(std::shared_ptr<const policy::Snapshot> snapshot);
  /// The policy in force; null before the first `use`.
  std::shared_ptr<const policy::Snapshot> current() const;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  mutable std::mutex mutex_;
  std::shared_ptr<const policy::Snapshot> current_;
};

}  // namespace gateway::milter
