// Any text as a policy: it loads, or says why not. What loads compiles, its conditions have one
// stored text, and it comes back from a store's records and from the file that these are exported
// to.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fuzz/check.h"
#include "gateway/policy/condition.h"
#include "gateway/policy/lint.h"
#include "gateway/policy/loader.h"
#include "gateway/policy/matcher.h"
#include "gateway/policy/policy_diff.h"
#include "gateway/policy/policy_export.h"
#include "gateway/policy/policy_records.h"
#include "gateway/policy/snapshot.h"
#include "gateway/scan/message_facts.h"
#include "host/message/message.h"

namespace {

using fuzz::require;

using namespace gateway;  // NOLINT(google-build-using-namespace)

const host::message::Message& sample() {
  static const auto kMessage = host::message::Message::parse(host::message::Buffer::copyOf(
      "From: a@example.com\nSubject: sample\nContent-Type: image/png; name=a.exe\n\nx\n"));
  return *kMessage;
}

void checkLoaded(const policy::LoadedPolicy& loaded, policy::Diagnostics& diagnostics) {
  for (const policy::RuleRow& rule : loaded.rows.rules) {
    const auto condition =
        policy::parseCanonicalText(rule.condition, [](int, const std::string&) { std::abort(); });
    require(condition.has_value() && policy::canonicalText(*condition) == rule.condition);
  }
  const auto snapshot = policy::Snapshot::build(loaded.rows, diagnostics, loaded.lines);
  require(snapshot != nullptr);
  policy::lintPolicy(loaded.rows, loaded.lines, diagnostics);
  const scan::MessageFacts facts(sample());
  std::vector<std::size_t> marked;
  for (const policy::Snapshot::Rule& rule : snapshot->rules()) {
    const bool matched = rule.matcher.matches(facts, marked);
    require(matched || marked.empty());
  }
}

/// What a store would keep, and the file that says it: both say the same as what was loaded.
void checkStored(const policy::LoadedPolicy& loaded, policy::Diagnostics& diagnostics) {
  host::store::PolicyRecord record;
  require(policy::recordOf(loaded.rows, {}, record, diagnostics));
  host::store::PolicyRecord same;
  require(policy::recordOf(policy::rowsOf(record), record, same, diagnostics));
  require(same.objects == record.objects && same.rules == record.rules);
  const auto text = policy::exportPolicy(record, diagnostics);
  require(text.has_value());
  const auto again = policy::loadPolicy(*text, diagnostics);
  require(again.has_value() && policy::recordOf(again->rows, {}, same, diagnostics));
  require(same.objects == record.objects && same.rules == record.rules);
  require(policy::PolicyDiff(record, same).changes().empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  policy::Diagnostics diagnostics("policy.yaml");
  if (const auto loaded = policy::loadPolicy(text, diagnostics)) {
    checkLoaded(*loaded, diagnostics);
    checkStored(*loaded, diagnostics);
  } else {
    require(diagnostics.hasErrors());
  }
  for (const policy::Diagnostic& diagnostic : diagnostics.all()) {
    require(diagnostics.text(diagnostic).find('\n') == std::string::npos);
  }
  (void)policy::parseCanonicalText(text, [](int, const std::string&) {});
  return 0;
}
