// Any policy comes out of a store as it went in.
#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "gateway/policy/action_registry.h"
#include "gateway/policy/policy_diff.h"
#include "gateway/policy/yaml_writer.h"
#include "tests/unit/gateway/policy_round_trip.h"

namespace gateway::policy {
namespace {

using host::store::ObjectRecord;
using host::store::PolicyRecord;

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
