// A policy from a file.
#pragma once

#include <string>
#include <utility>

#include "gateway/milter/policy_source.h"

namespace gateway::milter {

/// The file is read when somebody asks for it.
class FilePolicy final : public PolicySource {
 public:
  explicit FilePolicy(std::string path) : PolicySource(std::move(path)) {}
  PolicyReading read() override;
};

}  // namespace gateway::milter
