#include "gateway/policy/action_registry.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <utility>

#include "gateway/policy/yaml_reader.h"
#include "library/actions/disposition/postpone.h"

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

INSTANTIATE_TEST_SUITE_P(
    All, Settings,
    testing::Values(Setting{"delete", nullptr, ""}, Setting{"virus_clean", nullptr, ""},
                    Setting{"postpone", "8:05", "08:05"}, Setting{"postpone", "00:00", "00:00"},
                    Setting{"postpone", "23:59", "23:59"},
                    Setting{"x_header", " X-A : b:c ", "X-A: b:c"}, Setting{"quarantine", "7", "7"},
                    Setting{"archive", "4294967295", "4294967295"},
                    Setting{"handoff", "mail.example.org:25", "mail.example.org:25"},
                    Setting{"handoff", "[2001:db8::1]:65535", "[2001:db8::1]:65535"},
                    Setting{"readdress", "a@x.example", "a@x.example"},
                    Setting{"bcc", " <a@x.example> ;b@x.example; ", "a@x.example; b@x.example"},
                    Setting{"ibe_encrypt", nullptr, ""}, Setting{"ibe_decrypt", nullptr, ""},
                    Setting{"ibe_reencrypt", nullptr, ""}, Setting{"stamp", "3", "3"},
                    Setting{"tag_subject", "[EXT] ", "[EXT] "},
                    Setting{"tag_subject", "\xe5\xa4\x96: ", "\xe5\xa4\x96: "},
                    Setting{"delete_attachments", "all", "all"},
                    Setting{"delete_attachments", "matching", "matching"}));

struct Refusal {
  const char* action;
  const char* value;
};

class Refusals : public testing::TestWithParam<Refusal> {};

TEST_P(Refusals, ComeWithOneFault) {
  Node value;
  value.kind = Node::Kind::Scalar;
  value.text = GetParam().value;
  std::string setting;
  int faults = 0;
  EXPECT_FALSE(
      findAction(GetParam().action)->encode(value, setting, [&faults](int, const std::string&) {
        ++faults;
      }));
  EXPECT_EQ(faults, 1);
}

INSTANTIATE_TEST_SUITE_P(
    All, Refusals,
    testing::Values(Refusal{"quarantine", ""}, Refusal{"quarantine", "0"},
                    Refusal{"quarantine", "-1"}, Refusal{"quarantine", "4294967296"},
                    Refusal{"archive", "7 8"}, Refusal{"handoff", ""}, Refusal{"handoff", "host"},
                    Refusal{"handoff", ":25"}, Refusal{"handoff", "host:"},
                    Refusal{"handoff", "host:0"}, Refusal{"handoff", "host:65536"},
                    Refusal{"handoff", "host:25x"}, Refusal{"handoff", "a b:25"},
                    Refusal{"handoff", "2001:db8::1:25"}, Refusal{"handoff", "[host]:25"},
                    Refusal{"handoff", "[]:25"}, Refusal{"bcc", ""}, Refusal{"bcc", ";"},
                    Refusal{"bcc", "a\r\nb@x.example"}, Refusal{"bcc", "a b@x.example"},
                    Refusal{"readdress", "\xc3\xa4@x.example"}, Refusal{"stamp", "disclaimer"},
                    Refusal{"tag_subject", ""}, Refusal{"tag_subject", "a\nb"},
                    Refusal{"tag_subject", "a\x03"}, Refusal{"tag_subject", "\xff"},
                    Refusal{"delete_attachments", ""}, Refusal{"delete_attachments", "All"}));

std::unique_ptr<Document> yaml(std::string_view text) {
  Diagnostics diagnostics("value");
  auto document = readYaml(text, diagnostics);
  EXPECT_NE(document, nullptr) << text;
  return document;
}

TEST(TagSubject, TakesAMapAndWritesItBack) {
  const ActionSpec& spec = *findAction("tag_subject");
  struct Row {
    const char* value;
    const char* setting;
    const char* back;
  };
  for (const Row& row :
       {Row{"{tag: '[EXT] '}", "F[EXT] ", "[EXT] "},
        Row{"{tag: '[EXT] ', signed: leave}", "F[EXT] ", "[EXT] "},
        Row{"{signed: tag, tag: x}", "Tx", "{tag: \"x\", signed: tag}"},
        Row{"{tag: '{a\\\"b} '}", "F{a\\\"b} ", "{tag: \"{a\\\\\\\"b} \", signed: leave}"}}) {
    SCOPED_TRACE(row.value);
    std::string setting;
    std::string back;
    ASSERT_TRUE(spec.encode(*yaml(row.value)->root(), setting, kNoFault));
    EXPECT_EQ(setting, row.setting);
    ASSERT_TRUE(spec.decode(setting, back));
    EXPECT_EQ(back, row.back);
    if (!back.starts_with('{')) continue;
    std::string again;
    ASSERT_TRUE(spec.encode(*yaml(back)->root(), again, kNoFault));
    EXPECT_EQ(again, setting);
  }
}

TEST(TagSubject, RefusesMapsThatAreNone) {
  for (const char* value : {"{}", "{signed: tag}", "{tag: x, signed: yes}", "{tag: x, sign: tag}",
                            "{tag: [x]}", "{tag: ''}", "[x]"}) {
    std::string setting;
    int faults = 0;
    EXPECT_FALSE(
        findAction("tag_subject")
            ->encode(*yaml(value)->root(), setting, [&](int, const std::string&) { ++faults; }));
    EXPECT_EQ(faults, 1) << value;
  }
}

TEST(TagSubject, RefusesATagThatCanNeverFit) {
  Node value;
  value.kind = Node::Kind::Scalar;
  std::string setting;
  value.text = std::string(2047, 'x');
  EXPECT_TRUE(findAction("tag_subject")->encode(value, setting, kNoFault));
  value.text += 'x';
  EXPECT_FALSE(findAction("tag_subject")->encode(value, setting, [](int, const std::string&) {}));
}

TEST(ActionRegistry, TakesAddressesAsAList) {
  Node first;
  first.kind = Node::Kind::Scalar;
  first.text = "a@x.example";
  Node second = first;
  second.text = "b@x.example";
  Node list;
  list.kind = Node::Kind::List;
  list.items = {&first, &second};
  const ActionSpec* spec = findAction("readdress");
  std::string setting;
  std::string value;
  ASSERT_TRUE(spec->encode(list, setting, kNoFault));
  ASSERT_TRUE(spec->decode(setting, value));
  EXPECT_EQ(value, "a@x.example; b@x.example");
  list.items.clear();
  EXPECT_FALSE(spec->encode(list, setting, [](int, const std::string&) {}));
}

TEST(ActionRegistry, NamesTheObjectsThatASettingRefersTo) {
  EXPECT_EQ(findAction("quarantine")->objectIds("2-7-9"), (std::vector<unsigned int>{7, 9}));
  EXPECT_TRUE(findAction("delete")->objectIds("").empty());
}

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
  const ActionSpec& postpone = *findAction("postpone");
  for (const auto& [hour, minute] :
       {std::pair(24, 0), std::pair(0, 60), std::pair(-1, 0), std::pair(0, -1)}) {
    uiPostpone settings;
    settings.hour = hour;
    settings.min = minute;
    EXPECT_FALSE(postpone.decode(settings.serialize(), value)) << hour << ":" << minute;
  }
}

}  // namespace
}  // namespace gateway::policy
