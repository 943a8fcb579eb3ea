#include "gateway/policy/action_registry.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace gateway::policy {
namespace {

const FaultSink kNoFault = [](int, const std::string& text) { ADD_FAILURE() << text; };

TEST(ActionRegistry, EveryRowIsWholeAndItsClassAgrees) {
  std::set<std::string_view> names;
  std::set<int> codes;
  std::string_view last;
  for (const ActionSpec& spec : allActions()) {
    SCOPED_TRACE(spec.name);
    EXPECT_TRUE(names.insert(spec.name).second);
    EXPECT_TRUE(codes.insert(spec.type).second);
    EXPECT_LT(last, spec.name) << "rows are ordered by name";
    last = spec.name;
    EXPECT_EQ(spec.make()->getType(), spec.type);
    EXPECT_EQ(findAction(spec.name), &spec);
    EXPECT_EQ(findAction(spec.type), &spec);
    EXPECT_FALSE(spec.summary.empty());
    EXPECT_EQ(spec.example.substr(0, spec.name.size()), spec.name);
    EXPECT_EQ(spec.takesValue(), spec.example.size() != spec.name.size());
  }
  EXPECT_EQ(findAction("nothing"), nullptr);
  EXPECT_EQ(findAction(6), nullptr);
}

struct Setting {
  const char* action;
  const char* value;  ///< null: none
  const char* back;   ///< the value as decoded
};

class Settings : public testing::TestWithParam<Setting> {};

TEST_P(Settings, GoThroughTheStringAndBack) {
  const ActionSpec* spec = findAction(GetParam().action);
  ASSERT_NE(spec, nullptr);
  Node value;
  if (GetParam().value != nullptr) {
    value.kind = Node::Kind::Scalar;
    value.text = GetParam().value;
  }
  std::string setting;
  ASSERT_TRUE(spec->encode(value, setting, kNoFault));
  ASSERT_NE(spec->build(setting), nullptr);
  EXPECT_EQ(spec->build(setting)->serialize(), setting);
  std::string back;
  ASSERT_TRUE(spec->decode(setting, back));
  EXPECT_EQ(back, GetParam().back);
}

INSTANTIATE_TEST_SUITE_P(All, Settings,
                         testing::Values(Setting{"delete", nullptr, ""},
                                         Setting{"virus_clean", nullptr, ""},
                                         Setting{"postpone", "8:05", "08:05"},
                                         Setting{"postpone", "00:00", "00:00"},
                                         Setting{"postpone", "23:59", "23:59"},
                                         Setting{"x_header", " X-A : b:c ", "X-A: b:c"}));

TEST(ActionRegistry, RefusesTimesThatAreNone) {
  const ActionSpec* spec = findAction("postpone");
  for (const char* text :
       {"", "8", "8:5", "24:00", "12:60", "-1:00", "1:000", "08:30 ", "008:30", ":30", "ab:cd"}) {
    Node value;
    value.kind = Node::Kind::Scalar;
    value.text = text;
    std::string setting;
    int faults = 0;
    EXPECT_FALSE(spec->encode(value, setting, [&faults](int, const std::string&) { ++faults; }))
        << text;
    EXPECT_EQ(faults, 1) << text;
  }
}

TEST(ActionRegistry, RefusesSettingsThatAreNone) {
  const std::string withNul("X-A:b\0c", 7);
  std::string value;
  EXPECT_EQ(findAction("postpone")->build("rubbish"), nullptr);
  EXPECT_FALSE(findAction("postpone")->decode("rubbish", value));
  EXPECT_EQ(findAction("x_header")->build(""), nullptr);
  EXPECT_EQ(findAction("x_header")->build(withNul), nullptr);
  EXPECT_FALSE(findAction("delete")->decode("something", value));
}

}  // namespace
}  // namespace gateway::policy
