#include "gateway/policy/policy_export.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gateway/policy/policy_diff.h"
#include "gateway/policy/yaml_writer.h"
#include "host/store/store.h"
#include "library/namedobj/stamp_area.h"
#include "tests/unit/gateway/policy_round_trip.h"

namespace gateway::policy {
namespace {

using host::store::ObjectRecord;
using host::store::PolicyRecord;
using testing::ElementsAre;
using testing::HasSubstr;

/// Why \p record cannot be exported.
std::vector<std::string> exportFaults(const PolicyRecord& record) {
  Diagnostics diagnostics("store");
  EXPECT_FALSE(exportPolicy(record, diagnostics).has_value());
  return textsOf(diagnostics);
}

TEST(PolicyExport, IsAPolicyThatPeopleCanRead) {
  constexpr char kText[] = R"(quarantine_areas:
  - name: virus
    aging_days: 7
stamps:
  - name: legal
    text: |-
      This message came from %SENDER%.
      Treat it with care: it's "private".
    position: end
    signed_and_tnef: leave
notifications:
  - name: admin
    sender: "Gateway <kavi@example.org>"
    recipients:
      - a@example.org
      - b@example.org
    subject: "Rule %RULENAME%"
    body: |
      Caught.
    trap: caught
rules:
  - id: 10
    name: executables
    enabled: false
    when:
      any:
        - attachment_name:
            - "*.exe"
            - "*.scr"
        - header:
            name: X-Spam-Flag
            matches:
              - "^yes"
    actions:
      - x_header: "X-Flag: yes"
      - tag_subject:
          tag: "[EXTERNAL] "
          signed: tag
      - notify:
          - admin
          - admin
      - quarantine: virus
  - id: 7
    name: rule 7
    when: always
    actions: []
)";
  std::string text = kText;
  // What needs no quotes is written without.
  const std::string sender = "\"Gateway <kavi@example.org>\"";
  text.replace(text.find(sender), sender.size(), "Gateway <kavi@example.org>");
  EXPECT_EQ(exported(recordOf(kText)), text);
}

TEST(PolicyExport, SaysWhatNoKeysSay) {
  PolicyRecord record = recordOf("stamps: [{name: a, text: x}]\nrules: []");
  record.objects[0].name = std::string("n\0\xFF", 3);
  record.objects[0].content = "01:1:1:x:0::";
  record.lastObjectId = 9;
  ObjectRecord broken;
  broken.id = 5;
  broken.type = 3;
  broken.name = "OPP:x";
  broken.content = std::string("\0", 1);
  record.objects.push_back(broken);
  EXPECT_EQ(exported(record),
            "quarantine_areas:\n"
            "  - name: \"OPP:x\"\n"
            "    setting: \"\\x00\"\n"
            "stamps:\n"
            "  - name: !!binary \"bgD/\"\n"
            "    setting: \"01:1:1:x:0::\"\n"
            "rules: []\n");
}

TEST(PolicyExport, LeavesOutWhatNoFileSpeaksOf) {
  PolicyRecord record = recordOf("stamps: [{name: a, text: x}]\nrules: []");
  ObjectRecord other = record.objects[0];
  other.id = 2;
  other.owner = 4;
  record.objects.push_back(other);
  other.id = 3;
  other.owner = 0;
  other.type = 9;
  record.objects.push_back(other);
  record.lastObjectId = 3;
  EXPECT_THAT(exported(record), HasSubstr("name: a\n    text: x\n"));
}

TEST(PolicyExport, RefusesWhatItCannotSay) {
  const PolicyRecord good = recordOf(
      "quarantine_areas: [{name: a}]\n"
      "rules: [{id: 4, name: n, when: always, actions: [{quarantine: a}]}]");
  PolicyRecord record = good;
  record.rules[0].condition = "rubbish";
  EXPECT_THAT(exportFaults(record), ElementsAre(HasSubstr("rule 4: stored condition: not JSON")));
  record = good;
  record.rules[0].condition = "\"always\" ";
  EXPECT_THAT(exportFaults(record),
              ElementsAre("store: no policy file can say what the store holds"));
  record = good;
  record.rules[0].actions[0].setting = "1:1";
  EXPECT_THAT(exportFaults(record),
              ElementsAre("store: rule 4: action 'quarantine' refers to objects by '1:1', which no "
                          "names give (let it refer to objects of owner 0: kavi rule bind)"));
  record = good;
  record.objects[0].owner = 3;
  EXPECT_THAT(exportFaults(record), ElementsAre(HasSubstr("which no names give")));
  record = good;
  record.rules[0].actions[0].type = 99;
  EXPECT_THAT(exportFaults(record), ElementsAre(HasSubstr("unknown action type 99")));
}

TEST(PolicyDiff, TellsChangesFromMoves) {
  const PolicyRecord from = recordOf(R"(
quarantine_areas: [{name: a}, {name: b}, {name: c}]
rules:
  - {id: 1, name: one, when: always, actions: [{quarantine: a}]}
  - {id: 2, name: two, when: always, actions: [delete]}
  - {id: 3, name: three, when: always, actions: [delete]}
  - {id: 4, name: four, when: always, actions: [delete]}
)");
  const PolicyRecord to = recordOf(R"(
quarantine_areas: [{name: a, aging_days: 3}, {name: c}, {name: d}]
rules:
  - {id: 3, name: three, when: always, actions: [delete]}
  - {id: 1, name: one, when: always, actions: [{quarantine: d}]}
  - {id: 5, name: five, when: always, actions: [delete]}
  - {id: 2, name: two, when: always, actions: [delete]}
)",
                                   from);
  std::vector<std::string> lines;
  const PolicyDiff diff(from, to);
  for (const PolicyChange& change : diff.changes()) {
    const char* kinds[] = {"added", "removed", "changed"};
    lines.push_back(std::string(kinds[static_cast<int>(change.kind)]) + " " +
                    std::string(change.word) + " " + change.name + (change.moved ? " moved" : "") +
                    (change.before == nullptr ? " new" : "") +
                    (change.after == nullptr ? " gone" : ""));
  }
  EXPECT_THAT(lines,
              ElementsAre("removed quarantine area b gone", "changed quarantine area a",
                          "added quarantine area d new", "removed rule four gone",
                          "changed rule three moved", "changed rule one", "added rule five new"));
  EXPECT_EQ(diff.count(PolicyChange::Kind::Added), 2u);
  EXPECT_EQ(writeYaml(*diff.changes()[5].after),
            "id: 1\nname: one\nwhen: always\nactions:\n  - quarantine: d\n");
  EXPECT_TRUE(PolicyDiff(to, to).changes().empty());
}

}  // namespace
}  // namespace gateway::policy
