// A policy's way into a store's rows and out again, in tests.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "gateway/policy/policy_export.h"
#include "gateway/policy/policy_records.h"
#include "host/store/store.h"
#include "tests/unit/gateway/policy_texts.h"

namespace gateway::policy {

/// The rows of the policy \p text, which must load, over \p present.
inline host::store::PolicyRecord recordOf(std::string_view text,
                                          const host::store::PolicyRecord& present = {}) {
  Diagnostics diagnostics("policy.yaml");
  host::store::PolicyRecord record;
  EXPECT_TRUE(policy::recordOf(loadGood(text).rows, present, record, diagnostics));
  for (const host::store::ObjectRecord& object : record.objects) {
    record.lastObjectId = std::max(record.lastObjectId, object.id);
  }
  return record;
}

/// The text of \p record, which must be possible.
inline std::string exported(const host::store::PolicyRecord& record) {
  Diagnostics diagnostics("store");
  const auto text = exportPolicy(record, diagnostics);
  EXPECT_TRUE(text.has_value()) << testing::PrintToString(textsOf(diagnostics));
  return text.value_or("");
}

}  // namespace gateway::policy
