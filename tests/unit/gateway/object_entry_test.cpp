// Named objects as entries of a policy again.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gateway/policy/named_objects.h"
#include "gateway/policy/stamps.h"
#include "library/namedobj/notify_area.h"
#include "library/namedobj/stamp_area.h"
#include "tests/unit/gateway/policy_texts.h"

namespace gateway::policy {
namespace {

using testing::ElementsAre;

/// The entry as "key=value" lines, lists in brackets.
std::vector<std::string> entryLines(unsigned int type, const std::string& name,
                                    const std::string& setting) {
  Document document;
  const Node& entry = entryOf(*findObjectKind(type), name, setting, document);
  std::vector<std::string> lines;
  for (const Node::Member& member : entry.members) {
    std::string line = member.key + "=" + member.value->text;
    for (const Node* item : member.value->items) line += "[" + item->text + "]";
    if (member.value->kind == Node::Kind::Binary) line += " (bytes)";
    lines.push_back(line);
  }
  return lines;
}

std::string stampSetting(const std::string& text, const std::string& note) {
  uiStampArea stamp;
  stamp.stampText = text;
  stamp.auxText = note;
  return stamp.serialize();
}

TEST(ObjectEntry, SaysAreasByTheirKeys) {
  EXPECT_THAT(entryLines(3, "virus", "7:5:virus:"), ElementsAre("name=virus", "aging_days=7"));
  EXPECT_THAT(entryLines(4, "journal", "0:7:journal:"),
              ElementsAre("name=journal", "aging_days=0"));
}

TEST(ObjectEntry, SaysStampsByTheirKeys) {
  EXPECT_THAT(entryLines(2, "s", "1:2:5:Hello:0::"),
              ElementsAre("name=s", "text=Hello", "position=top", "signed_and_tnef=stamp"));
  EXPECT_THAT(entryLines(2, "s",
                         stampSetting("a\x03\x03"
                                      "b\x03",
                                      "note")),
              ElementsAre("name=s", "text=a\n\nb\n\n", "position=end", "signed_and_tnef=leave",
                          "note=note"));
}

TEST(ObjectEntry, SaysNotificationsByTheirKeys) {
  const LoadedPolicy loaded = loadGood(R"(
notifications:
  - {name: all, sender: a@example.org, recipients: [b@example.org, c@example.org], subject: s,
     body: "b\n", trap: t, send_trap: no, type: 7, notify_sender: yes, notify_recipients: yes,
     attach: current}
  - {name: trap, trap: t, attach: received}
rules: []
)");
  EXPECT_THAT(
      entryLines(1, "all", loaded.rows.objects[0].setting),
      ElementsAre("name=all", "sender=a@example.org", "recipients=[b@example.org][c@example.org]",
                  "subject=s", "body=b\n", "trap=t", "send_trap=no", "type=7", "notify_sender=yes",
                  "notify_recipients=yes", "attach=current"));
  EXPECT_THAT(entryLines(1, "trap", loaded.rows.objects[1].setting),
              ElementsAre("name=trap", "trap=t", "attach=received"));
}

TEST(ObjectEntry, KeepsTheSettingWhereKeysWouldGiveAnother) {
  const std::string broken("7:5:vi\0us:", 10);
  struct Case {
    unsigned int type;
    const char* name;
    std::string setting;
  };
  for (const Case& each : std::vector<Case>{
           {3, "virus", ""},
           {3, "virus", "rubbish"},
           {3, "virus", "07:5:virus:"},         // a leading zero
           {3, "virus", "7x5:virus:"},          // another separator
           {3, "virus", "7:5:virus:more"},      // a tail
           {3, "other", "7:5:virus:"},          // the record has a name of its own
           {3, "virus", "36501:5:virus:"},      // longer than anybody keeps mail
           {3, "virus", broken},                // a NUL
           {2, "s", "3:1:5:Hello:0::"},         // a position that policies do not have
           {2, "s", "1:1:0::0::"},              // an empty text
           {2, "s", stampSetting("a\nb", "")},  // a break that is not the record's
           {2, "s", stampSetting(std::string(kMaxStampText + 1, 'x'), "")},
           {1, "n", "0::0::0::0::0::0::0:0:0:0:0:0:0:"},  // another name
           {1, "n", "1:n:0::9:a b@x.org:0::0::0::0:0:0:0:0:0:0:"},
           {1, "n", "1:n:0::0::0::0::0::0:0:0:0:3:0:0:"},  // a derived flag that does not follow
           {1, "n", "1:n:0::0::0::0::0::0:0:1:0:0:0:0:"},  // a trap without a text
           {1, "n", "1:n:0::0::0::0::0::0:0:0:0:0:0:1:"},
       }) {
    EXPECT_THAT(entryLines(each.type, each.name, each.setting),
                ElementsAre(std::string("name=") + each.name, "setting=" + each.setting))
        << testing::PrintToString(each.setting);
  }
}

TEST(ObjectEntry, KeepsBytesThatAreNoText) {
  EXPECT_THAT(entryLines(3, "v\xFF", "7:2:v\xFF:"),
              ElementsAre("name=v\xFF (bytes)", "aging_days=7"));
  EXPECT_THAT(entryLines(2, "s", stampSetting("\xC3(", "")),
              ElementsAre("name=s", "setting=2:1:2:\xC3(:0:: (bytes)"));
}

TEST(ObjectEntry, ReadsSettingsStringsBack) {
  const LoadedPolicy loaded = loadGood(R"(
quarantine_areas:
  - {name: !!binary "dv8=", setting: "07:5:virus:\0\x03"}
  - {name: b, setting: !!binary "/wA="}
rules:
  - {id: 1, when: always, actions: [{type: 1, setting: "any"}, {type: x_header, setting: "X-A:  b"}]}
)");
  ASSERT_EQ(loaded.rows.objects.size(), 2U);
  EXPECT_EQ(loaded.rows.objects[0].name, "v\xFF");
  EXPECT_EQ(loaded.rows.objects[0].setting, std::string("07:5:virus:\0\x03", 13));
  EXPECT_EQ(loaded.rows.objects[1].setting, std::string("\xFF\0", 2));
  ASSERT_EQ(loaded.rows.rules[0].actions.size(), 2U);
  EXPECT_EQ(loaded.rows.rules[0].actions[0].type, KaviAction::Delete);
  EXPECT_EQ(loaded.rows.rules[0].actions[0].setting, "any");
  EXPECT_EQ(loaded.rows.rules[0].actions[1].type, KaviAction::InsertXHeaderTag);
  EXPECT_EQ(loaded.rows.rules[0].actions[1].setting, "X-A:  b");
}

TEST(ObjectEntry, RefusesWhatNoRuleCouldUse) {
  EXPECT_THAT(
      faultsOf("quarantine_areas: [{name: a, setting: rubbish}]\n"
               "rules: [{id: 1, when: always, actions: [{quarantine: a}]}]"),
      ElementsAre("policy.yaml:2: rule 1: action 'quarantine' names the quarantine area 'a', whose "
                  "settings string its record refuses (correct it)"));
  EXPECT_THAT(faultsOf("quarantine_areas: [{name: a, setting: '7:1:a:', aging_days: 7}]\n"
                       "rules: []"),
              ElementsAre(testing::HasSubstr("unknown key 'aging_days' in an entry with a settings "
                                             "string")));
  EXPECT_THAT(faultsOf("quarantine_areas: [{name: a, setting: [x]}]\nrules: []"),
              ElementsAre(testing::HasSubstr("'setting' must be a settings string")));
  EXPECT_THAT(faultsOf("quarantine_areas: [{name: a, aging_days: !!binary Nw==}]\nrules: []"),
              ElementsAre(testing::HasSubstr("aging_days '7'")));
  EXPECT_THAT(faultsOf("quarantine_areas: [{name: !!binary '*'}]\nrules: []"),
              ElementsAre("policy.yaml:1: what stands behind !!binary is no base64"));
}

TEST(ObjectEntry, RefusesActionsThatTheirClassRefuses) {
  const auto fault = [](const std::string& action) {
    return faultsOf("rules: [{id: 1, when: always, actions: [" + action + "]}]");
  };
  EXPECT_THAT(
      fault("{type: postpone, setting: rubbish}"),
      ElementsAre("policy.yaml:1: rule 1: action 'postpone' refuses its setting 'rubbish'"));
  EXPECT_THAT(fault("{type: 99, setting: ''}"),
              ElementsAre(testing::HasSubstr("needs its type, a name or a code")));
  EXPECT_THAT(fault("{setting: ''}"),
              ElementsAre(testing::HasSubstr("needs its type, a name or a code")));
  EXPECT_THAT(fault("{type: stamp, setting: 1-1}"),
              ElementsAre(testing::HasSubstr("is written with names")));
  EXPECT_THAT(fault("{type: delete, setting: '', name: x}"),
              ElementsAre(testing::HasSubstr("unknown key 'name'")));
}

}  // namespace
}  // namespace gateway::policy
