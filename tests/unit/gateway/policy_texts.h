// Loading policies in tests.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/policy/diagnostics.h"
#include "gateway/policy/loader.h"
#include "gateway/policy/snapshot.h"

namespace gateway::policy {

inline std::vector<std::string> textsOf(const Diagnostics& diagnostics) {
  return diagnostics.texts();
}

/// The diagnostics of loading \p text.
inline std::vector<std::string> faultsOf(std::string_view text) {
  Diagnostics diagnostics("policy.yaml");
  const auto loaded = loadPolicy(text, diagnostics);
  EXPECT_EQ(loaded.has_value(), !diagnostics.hasErrors());
  return textsOf(diagnostics);
}

/// A policy that must load.
inline LoadedPolicy loadGood(std::string_view text) {
  Diagnostics diagnostics("policy.yaml");
  auto loaded = loadPolicy(text, diagnostics);
  EXPECT_TRUE(loaded.has_value()) << testing::PrintToString(textsOf(diagnostics));
  return loaded.value_or(LoadedPolicy());
}

inline std::shared_ptr<const Snapshot> snapshotOf(std::string_view text) {
  const LoadedPolicy loaded = loadGood(text);
  Diagnostics diagnostics("policy.yaml");
  auto snapshot = Snapshot::build(loaded.rows, diagnostics, loaded.lines);
  EXPECT_NE(snapshot, nullptr) << testing::PrintToString(textsOf(diagnostics));
  return snapshot;
}

}  // namespace gateway::policy
