#include "gateway/policy/policy_export.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "gateway/policy/action_registry.h"
#include "gateway/policy/policy_diff.h"
#include "gateway/policy/policy_records.h"
#include "gateway/policy/yaml_writer.h"
#include "host/store/store.h"
#include "library/namedobj/stamp_area.h"
#include "tests/unit/gateway/policy_texts.h"

namespace gateway::policy {
namespace {

using host::store::ObjectRecord;
using host::store::PolicyRecord;
using testing::ElementsAre;
using testing::HasSubstr;

PolicyRecord recordOf(std::string_view text, const PolicyRecord& present = {}) {
  Diagnostics diagnostics("policy.yaml");
  PolicyRecord record;
  EXPECT_TRUE(policy::recordOf(loadGood(text).rows, present, record, diagnostics));
  for (const ObjectRecord& object : record.objects) {
    record.lastObjectId = std::max(record.lastObjectId, object.id);
  }
  return record;
}

std::string exported(const PolicyRecord& record) {
  Diagnostics diagnostics("store");
  const auto text = exportPolicy(record, diagnostics);
  EXPECT_TRUE(text.has_value()) << testing::PrintToString(textsOf(diagnostics));
  return text.value_or("");
}

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

// --- Any policy ---

/// Makes policies of all that there is, and of texts that YAML has other plans with.
class RandomPolicy {
 public:
  explicit RandomPolicy(unsigned int seed) : random_(seed) {}

  std::string text() {
    Document document;
    Node& tree = document.add(Node::Kind::Map, 0);
    for (const char* key : {"quarantine_areas", "archive_areas", "stamps", "notifications"}) {
      Node& list = document.add(Node::Kind::List, 0);
      for (unsigned int i = 0; i < 3; ++i) list.items.push_back(&object(document, key, i));
      tree.members.push_back({key, 0, &list});
    }
    Node& rules = document.add(Node::Kind::List, 0);
    const unsigned int count = below(6);
    for (unsigned int i = 0; i < count; ++i) rules.items.push_back(&rule(document, i));
    tree.members.push_back({"rules", 0, &rules});
    return writeYaml(tree);
  }

  unsigned int below(unsigned int limit) { return static_cast<unsigned int>(random_() % limit); }

  std::string bytes() {
    std::string text(below(12), '\0');
    for (char& c : text) c = static_cast<char>(random_());
    return text;
  }

  std::string line() {
    static const char* const kPieces[] = {"a",  "Name", " ", "- ", ": ", "#", " #",   "\"", "'",
                                          "\\", "é",    "📨", "{",  "[",  "%", "null", "*",  "&",
                                          "!",  "|",    ">", "~",  "?",  "@", "yes",  "7",  "\t"};
    std::string text;
    const unsigned int count = 1 + below(5);
    for (unsigned int i = 0; i < count; ++i) text += kPieces[below(std::size(kPieces))];
    return text;
  }

 private:
  std::string lines() {
    std::string text = line();
    while (below(2) == 0) text += (below(5) == 0 ? "\r\n" : "\n") + (below(4) == 0 ? "" : line());
    return "x" + text;
  }
  std::string pick(std::vector<std::string> choices) {
    return choices[below(static_cast<unsigned int>(choices.size()))];
  }
  // A name that is the same every time: actions say it again.
  static std::string nameOf(const std::string& key, unsigned int index) {
    static const char* const kNames[] = {"plain", " - \"odd\": #1 📨 ", "*é{%"};
    return kNames[index] + key;
  }

  Node& object(Document& document, const std::string& key, unsigned int index) {
    Node& entry = document.add(Node::Kind::Map, 0);
    document.addMember(entry, "name", nameOf(key, index));
    const auto maybe = [&](const char* name, const std::string& value) {
      if (below(2) == 0) document.addMember(entry, name, value);
    };
    if (key == "stamps") {
      document.addMember(entry, "text", lines());
      maybe("position", pick({"top", "end"}));
      maybe("signed_and_tnef", pick({"leave", "stamp"}));
      maybe("note", lines());
    } else if (key == "notifications") {
      document.addMember(entry, "trap", "t" + withoutTabs(line()));
      maybe("sender", pick({"a@example.org", "Some <b@example.org>", ""}));
      maybe("recipients", pick({"a@example.org", "<a@example.org>; b@example.org"}));
      maybe("subject", withoutTabs(line()));
      maybe("body", lines());
      maybe("notify_sender", pick({"yes", "no"}));
      maybe("notify_recipients", pick({"yes", "no"}));
      maybe("type", std::to_string(below(30)));
      maybe("send_trap", pick({"yes", "no"}));
      maybe("attach", pick({"no", "received", "current"}));
    } else {
      maybe("aging_days", std::to_string(below(36'501)));
    }
    return entry;
  }

  static std::string withoutTabs(std::string text) {
    std::erase(text, '\t');
    return text;
  }

  Node& condition(Document& document, unsigned int depth) {
    Node& map = document.add(Node::Kind::Map, 0);
    const auto under = [&](const std::string& key, const Node& value) -> Node& {
      map.members.push_back({key, 0, &value});
      return map;
    };
    switch (below(depth > 3 ? 7 : 10)) {
      case 0:
        return document.addValue("always");
      case 1: {
        Node& header = document.add(Node::Kind::Map, 0);
        document.addMember(header, "name", "X-" + std::to_string(below(9)));
        if (below(2) == 0) document.addMember(header, "matches", "\\Q" + line() + "\\E$");
        return under("header", header);
      }
      case 2:
      case 3:
      case 4: {
        Node& matches = document.add(Node::Kind::Map, 0);
        document.addMember(matches, "matches", "\\Q" + line() + "\\E");
        return under(pick({"subject", "sender", "recipient"}), matches);
      }
      case 5: {
        Node& size = document.add(Node::Kind::Map, 0);
        document.addMember(size, "over", std::to_string(below(1000)) + pick({"", "kB", "MB"}));
        return under("size", size);
      }
      case 6: {
        Node& list = document.add(Node::Kind::List, 0);
        for (unsigned int i = 0; i < 2; ++i) list.items.push_back(&document.addValue("*" + line()));
        return under(pick({"attachment_name", "attachment_type"}), list);
      }
      case 7:
        return under("not", condition(document, depth + 1));
      default: {
        Node& list = document.add(Node::Kind::List, 0);
        const unsigned int count = 1 + below(3);
        for (unsigned int i = 0; i < count; ++i) {
          list.items.push_back(&condition(document, depth + 1));
        }
        return under(pick({"all", "any"}), list);
      }
    }
  }

  Node& rule(Document& document, unsigned int index) {
    Node& entry = document.add(Node::Kind::Map, 0);
    document.addMember(entry, "id", std::to_string(1000 - index * 7));
    if (below(3) != 0) document.addMember(entry, "name", "n" + withoutTabs(line()));
    if (below(3) == 0) document.addMember(entry, "enabled", "no");
    if (below(3) == 0) document.addMember(entry, "on_failure", pick({"accept", "tempfail"}));
    if (below(3) == 0) {
      Node& verdict = document.add(Node::Kind::Map, 0);
      document.addMember(verdict, pick({"reject", "tempfail"}), "No: \"such\" mail, 'here' # {");
      entry.members.push_back({"verdict", 0, &verdict});
    }
    entry.members.push_back({"when", 0, &condition(document, 0)});
    Node& actions = document.add(Node::Kind::List, 0);
    const unsigned int count = below(5);
    for (unsigned int i = 0; i < count; ++i) actions.items.push_back(&action(document));
    entry.members.push_back({"actions", 0, &actions});
    return entry;
  }

  Node& action(Document& document) {
    const auto all = allActions();
    const ActionSpec& spec = all[below(static_cast<unsigned int>(all.size()))];
    if (!spec.takesValue()) return document.addValue(std::string(spec.name));
    Node& entry = document.add(Node::Kind::Map, 0);
    if (spec.takesSeveral && below(2) == 0) {
      Node& list = document.add(Node::Kind::List, 0);
      for (unsigned int i = 0; i < 3; ++i) {
        list.items.push_back(&document.addValue(nameOf("notifications", below(3))));
      }
      entry.members.push_back({std::string(spec.name), 0, &list});
    } else if (spec.type == KaviAction::TagSubject && below(2) == 0) {
      Node& map = document.add(Node::Kind::Map, 0);
      document.addMember(map, "tag", "{" + withoutTabs(line()));
      document.addMember(map, "signed", pick({"tag", "leave"}));
      entry.members.push_back({std::string(spec.name), 0, &map});
    } else {
      document.addMember(entry, spec.name, valueOf(spec));
    }
    return entry;
  }

  std::string valueOf(const ActionSpec& spec) {
    switch (spec.type) {
      case KaviAction::Archive:
        return nameOf("archive_areas", below(3));
      case KaviAction::Quarantine:
        return nameOf("quarantine_areas", below(3));
      case KaviAction::Stamp:
        return nameOf("stamps", below(3));
      case KaviAction::Notify:
        return nameOf("notifications", below(3));
      case KaviAction::TagSubject:
        return "x" + withoutTabs(line());
      case KaviAction::InsertXHeaderTag:
        return pick({"X-Flag: yes", "X-Odd: \"a: b\" # 'c' {", "{X-Brace: 1", "X-A:b"});
      case KaviAction::Postpone:
        return pick({"08:30", "0:05", "23:59"});
      case KaviAction::Handoff:
        return pick({"mail.example.org:25", "[2001:db8::1]:2525", "192.0.2.1:25"});
      case KaviAction::DeleteAttachment:
        return pick({"all", "matching"});
      default:
        return pick({"a@example.org", "b@example.org;  <c@example.org>"});
    }
  }

  std::mt19937 random_;
};

TEST(PolicyExport, GivesAnyPolicyAgain) {
  for (unsigned int seed = 0; seed < 400; ++seed) {
    SCOPED_TRACE(seed);
    const LoadedPolicy loaded = loadGood(RandomPolicy(seed).text());
    Diagnostics diagnostics("policy.yaml");
    PolicyRecord record;
    ASSERT_TRUE(policy::recordOf(loaded.rows, {}, record, diagnostics));
    const std::string text = exported(record);
    const PolicyRecord again = recordOf(text);
    ASSERT_EQ(again.rules, record.rules) << text;
    ASSERT_EQ(again.objects, record.objects) << text;
    ASSERT_EQ(exported(recordOf(text)), text);
  }
}

TEST(PolicyExport, ChangesNothingInAStoreWithAnyObjects) {
  const auto store = host::store::makeMemoryStore();
  PolicyRecord present;
  for (unsigned int seed = 0; seed < 100; ++seed) {
    SCOPED_TRACE(seed);
    RandomPolicy random(seed);
    ASSERT_TRUE(store->readPolicy(present).ok());
    PolicyRecord record = recordOf(random.text(), present);
    std::int64_t revision = 0;
    ASSERT_TRUE(store->replacePolicy(record, {"tester", 1}, revision).ok());
    for (unsigned int i = 0; i < 6; ++i) {
      ObjectRecord object;
      object.type = 1 + random.below(4);
      object.owner = random.below(2);
      object.name = std::to_string(seed * 6 + i) + random.bytes();
      object.content = random.bytes();
      std::uint32_t id = 0;
      ASSERT_TRUE(store->addObject(object, {"tester", 2}, id).ok());
    }
    ASSERT_TRUE(store->readPolicy(present).ok());
    const PolicyRecord again = recordOf(exported(present), present);
    EXPECT_TRUE(PolicyDiff(present, again).changes().empty());
    std::int64_t later = 0;
    ASSERT_TRUE(store->replacePolicy(again, {"tester", 3}, later).ok());
    ASSERT_EQ(later, present.revision);
  }
}

}  // namespace
}  // namespace gateway::policy
