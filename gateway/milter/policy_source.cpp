#include "gateway/milter/policy_source.h"

#include "gateway/policy/loader.h"

namespace gateway::milter {

std::shared_ptr<const policy::Snapshot> PolicySource::load(std::vector<std::string>& faults) const {
  policy::Diagnostics diagnostics(path_);
  std::shared_ptr<const policy::Snapshot> snapshot;
  if (const auto loaded = policy::loadPolicyFile(path_, diagnostics)) {
    snapshot = policy::Snapshot::build(loaded->rows, diagnostics, loaded->lines);
  }
  for (const policy::Diagnostic& diagnostic : diagnostics.all()) {
    faults.push_back(diagnostics.text(diagnostic));
  }
  return snapshot;
}

void PolicySource::use(std::shared_ptr<const policy::Snapshot> snapshot) {
  const std::lock_guard lock(mutex_);
  current_.swap(snapshot);
}

std::shared_ptr<const policy::Snapshot> PolicySource::current() const {
  const std::lock_guard lock(mutex_);
  return current_;
}

}  // namespace gateway::milter
