#include "gateway/cli/store_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "library/framework/kavi_action.h"
#include "library/platform/kavi_named_obj.h"

namespace {

using gateway::cli::policyFaults;
using host::store::ObjectRecord;
using host::store::PolicyRecord;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// A stamp, a quarantine area, and a rule that uses both.
PolicyRecord soundPolicy() {
  PolicyRecord policy;
  policy.objects.resize(2);
  policy.objects[0].id = 1;
  policy.objects[0].type = KaviNamedObj::StampType;
  policy.objects[0].name = "legal";
  policy.objects[0].content = "1:1:2:Hi:0::";
  policy.objects[1].id = 2;
  policy.objects[1].type = KaviNamedObj::QuarantineAreaType;
  policy.objects[1].name = "virus";
  policy.objects[1].content = "7:5:virus:";
  policy.rules = {{15,
                   "executables",
                   1,
                   true,
                   R"("always")",
                   {{KaviAction::Stamp, "1-1", {1}}, {KaviAction::Quarantine, "1-2", {2}}}}};
  return policy;
}

TEST(StoreCheck, FindsNothingInASoundPolicy) {
  EXPECT_THAT(policyFaults({}), IsEmpty());
  EXPECT_THAT(policyFaults(soundPolicy()), IsEmpty());
}

TEST(StoreCheck, NamesEachFaultAndItsPlace) {
  struct Case {
    const char* what;
    std::function<void(PolicyRecord&)> spoil;
    const char* fault;
  };
  const Case cases[] = {
      {"unknown type",
       [](PolicyRecord& p) {
         p.objects.push_back({9, 0, 77, "n\n", "x"});
       },
       "the object 9 of type 77, 'n?', cannot be built"},
      {"refused record", [](PolicyRecord& p) { p.objects[0].content = "0:1:2:Hi:0::"; },
       "the object 1 of type 2, 'legal', cannot be built from '0:1:2:Hi:0::'"},
      {"NUL in a record", [](PolicyRecord& p) { p.objects[1].content += std::string(1, '\0'); },
       "the object 2 of type 3, 'virus', cannot be built"},
      {"condition", [](PolicyRecord& p) { p.rules[0].condition = "{"; }, "rule 15: "},
      {"unknown action",
       [](PolicyRecord& p) {
         p.rules[0].actions[0] = {6, "x", {}};
       },
       "rule 15: unknown action type 6"},
      {"refused action",
       [](PolicyRecord& p) {
         p.rules[0].actions[0] = {18, "\xFF", {}};
       },
       "rule 15: action 'x_header' refuses its setting '\\xFF'"},
      {"other row", [](PolicyRecord& p) { p.rules[0].actions[0].objects = {}; },
       "rule 15: action 1 refers to other objects than the store has written down"},
      {"other object",
       [](PolicyRecord& p) {
         p.rules[0].actions[0] = {8, "1-2", {2}};
       },
       "rule 15: action 'stamp' refers to the object 2, which is no stamp"},
      {"no object",
       [](PolicyRecord& p) {
         p.rules[0].actions[1] = {2, "1-44", {44}};
       },
       "rule 15: action 'quarantine' refers to the object 44, which is no quarantine area"}};
  for (const auto& [what, spoil, fault] : cases) {
    PolicyRecord policy = soundPolicy();
    spoil(policy);
    EXPECT_THAT(policyFaults(policy), Contains(HasSubstr(fault))) << what;
  }
}

}  // namespace
