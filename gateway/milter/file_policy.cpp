#include "gateway/milter/file_policy.h"

#include "gateway/policy/stored_policy.h"

namespace gateway::milter {

PolicyReading FilePolicy::read() {
  policy::Diagnostics diagnostics(name());
  PolicyReading reading;
  reading.snapshot = policy::loadFromFile(name(), diagnostics).snapshot;
  reading.faults = diagnostics.texts();
  return reading;
}

}  // namespace gateway::milter
