#include "gateway/policy/loader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/unit/gateway/policy_texts.h"

namespace gateway::policy {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

TEST(Loader, TurnsAPolicyIntoRows) {
  const LoadedPolicy policy = loadGood(R"(
quarantine_areas:
  - {name: virus, aging_days: 7}
rules:
  - id: 15
    name: executables
    when: {any: [{attachment_name: ["*.exe", "*.scr"]}, {header: {name: X-Spam-Flag, matches: "^yes"}}]}
    actions:
      - x_header: "X-Flag: yes"
      - postpone: "08:30"
      - delete
  - id: 16
    enabled: false
    when: always
    actions: [virus_clean]
)");
  ASSERT_EQ(policy.rows.rules.size(), 2u);
  const RuleRow& first = policy.rows.rules[0];
  EXPECT_EQ(first.id, 15u);
  EXPECT_EQ(first.name, "executables");
  EXPECT_TRUE(first.enabled);
  EXPECT_EQ(first.condition, R"({"any":[{"attachment_name":["*.exe","*.scr"]},)"
                             R"({"header":{"name":"X-Spam-Flag","matches":["^yes"]}}]})");
  ASSERT_EQ(first.actions.size(), 3u);
  EXPECT_EQ(first.actions[0].type, 18);
  EXPECT_EQ(first.actions[0].setting, "X-Flag:yes");
  EXPECT_EQ(first.actions[1].type, 12);
  EXPECT_EQ(first.actions[2].type, 1);
  EXPECT_EQ(first.actions[2].setting, "");
  const RuleRow& second = policy.rows.rules[1];
  EXPECT_EQ(second.name, "rule 16");
  EXPECT_FALSE(second.enabled);
  EXPECT_GT(second.order, first.order);
  EXPECT_EQ(policy.lines.ofRule(0), 5);
  EXPECT_EQ(policy.lines.ofAction(0, 2), 11);
  ASSERT_EQ(policy.rows.objects.size(), 1u);
  EXPECT_EQ(policy.rows.objects[0].type, 3u);
  EXPECT_EQ(policy.rows.objects[0].name, "virus");
  EXPECT_EQ(policy.rows.objects[0].id, 1u);
  EXPECT_EQ(policy.rows.objects[0].setting, "7:5:virus:");
}

TEST(Loader, GivesAreasIdsThatActionsReferTo) {
  const LoadedPolicy policy = loadGood(R"(
archive_areas:
  - {name: journal}
quarantine_areas:
  - {name: spam, aging_days: 14}
  - {name: journal, aging_days: 1}
rules:
  - id: 1
    when: always
    actions: [{archive: journal}, {quarantine: journal}]
)");
  ASSERT_EQ(policy.rows.objects.size(), 3u);
  std::vector<std::string> settings;
  for (const NamedObjectRow& row : policy.rows.objects) {
    settings.push_back(std::to_string(row.type) + " " + std::to_string(row.id) + " " + row.setting);
  }
  EXPECT_THAT(settings, ElementsAre("3 1 14:4:spam:", "3 2 1:7:journal:", "4 3 0:7:journal:"));
  const std::vector<ActionRow>& actions = policy.rows.rules[0].actions;
  ASSERT_EQ(actions.size(), 2u);
  EXPECT_EQ(actions[0].setting, "1-3") << "names belong to their kind";
  EXPECT_EQ(actions[1].setting, "1-2");
}

TEST(Loader, TakesAPolicyWithoutRules) { EXPECT_THAT(faultsOf("rules: []\n"), IsEmpty()); }

struct Fault {
  const char* name;
  const char* text;
  const char* fault;
};

class LoaderFaults : public testing::TestWithParam<Fault> {};

TEST_P(LoaderFaults, NameFileLineRuleAndRemedy) {
  EXPECT_THAT(faultsOf(GetParam().text), ElementsAre(GetParam().fault));
}

#define RULE "rules:\n- id: 15\n  when: always\n  actions:\n"

INSTANTIATE_TEST_SUITE_P(
    All, LoaderFaults,
    testing::Values(
        Fault{"Action", RULE "  - x_header: 'X-A: b'\n  - delte\n",
              "policy.yaml:6: rule 15: unknown action 'delte' (did you mean 'delete'?)"},
        Fault{"ActionList", RULE "  - frobnicate\n",
              "policy.yaml:5: rule 15: unknown action 'frobnicate' (known: archive, bcc, delete, "
              "delete_attachments, feedback, handoff, ibe_decrypt, ibe_encrypt, ibe_reencrypt, "
              "notify, postpone, quarantine, readdress, stamp, tag_subject, virus_clean, "
              "x_header)"},
        Fault{"ValueMissing", RULE "  - postpone\n",
              "policy.yaml:5: rule 15: action 'postpone' needs a value (write: postpone: "
              "\"08:30\")"},
        Fault{"ValueNotTaken", RULE "  - delete: now\n",
              "policy.yaml:5: rule 15: action 'delete' takes no value (write its name alone)"},
        Fault{"Time", RULE "  - postpone: '24:00'\n",
              "policy.yaml:5: rule 15: action 'postpone' needs a time of the day, not '24:00' "
              "(write hours and minutes, 00:00 to 23:59: \"08:30\")"},
        Fault{"HeaderColon", RULE "  - x_header: X-Flag\n",
              "policy.yaml:5: rule 15: action 'x_header' header line 'X-Flag' has no ':' between "
              "name and value (write: \"X-Flag: yes\")"},
        Fault{"HeaderValue", RULE "  - x_header: 'X-Flag: '\n",
              "policy.yaml:5: rule 15: action 'x_header' header line 'X-Flag: ' has an empty name "
              "or value (write: \"X-Flag: yes\")"},
        Fault{"HeaderByte", RULE "  - x_header: 'X-Flag: \xc3\xa4'\n",
              "policy.yaml:5: rule 15: action 'x_header' header line 'X-Flag: \xc3\xa4' has a "
              "character that is not printable ASCII (remove it)"},
        Fault{"HeaderBlank", RULE "  - x_header: 'X Flag: a'\n",
              "policy.yaml:5: rule 15: action 'x_header' header name 'X Flag' has a blank (write "
              "'-' instead)"},
        Fault{"HeaderIsMap", RULE "  - x_header: {name: a}\n",
              "policy.yaml:5: rule 15: action 'x_header' needs a header line as one text (write: "
              "\"X-Flag: yes\")"},
        Fault{"TwoActionsInOne", RULE "  - x_header: 'X: y'\n    postpone: '08:30'\n",
              "policy.yaml:5: rule 15: an action has one key, this one has 'x_header' and "
              "'postpone' (start each with its own '-')"},
        Fault{"ActionIsList", RULE "  - [delete]\n",
              "policy.yaml:5: rule 15: an action is a name, or a name with a value (write: "
              "delete)"},
        Fault{"ActionsNoList", "rules:\n- id: 15\n  when: always\n  actions: delete\n",
              "policy.yaml:4: rule 15: 'actions' must be a list (write: actions: [delete])"},
        Fault{"ActionsMissing", "rules:\n- id: 15\n  when: always\n",
              "policy.yaml:2: rule 15: the key 'actions' is missing (write 'actions: []' to only "
              "report matches)"},
        Fault{"WhenMissing", "rules:\n- id: 15\n  actions: []\n",
              "policy.yaml:2: rule 15: the key 'when' is missing (write 'when: always' for every "
              "message)"},
        Fault{"When", "rules:\n- id: 15\n  when: {subjet: x}\n  actions: []\n",
              "policy.yaml:3: rule 15: unknown condition 'subjet' (did you mean 'subject'?)"},
        Fault{"RuleKey", "rules:\n- id: 15\n  when: always\n  action: []\n  actions: []\n",
              "policy.yaml:4: rule 15: unknown key 'action' in a rule (did you mean 'actions'?)"},
        Fault{"IdMissing", "rules:\n- when: always\n  actions: []\n",
              "policy.yaml:2: rule number 1 of the list: the key 'id' is missing (give the rule a "
              "number of its own)"},
        Fault{"IdZero", "rules:\n- id: 0\n  when: always\n  actions: []\n",
              "policy.yaml:2: rule number 1 of the list: id '0' (an id is a whole number from 1 to "
              "4294967295)"},
        Fault{"IdNegative", "rules:\n- id: -3\n  when: always\n  actions: []\n",
              "policy.yaml:2: rule number 1 of the list: id '-3' (an id is a whole number from 1 "
              "to 4294967295)"},
        Fault{"IdTooLarge", "rules:\n- id: 4294967296\n  when: always\n  actions: []\n",
              "policy.yaml:2: rule number 1 of the list: id '4294967296' (an id is a whole number "
              "from 1 to 4294967295)"},
        Fault{"IdTwice",
              "rules:\n- {id: 1, when: always, actions: []}\n- {id: 1, when: always, actions: "
              "[]}\n",
              "policy.yaml:3: rule 1: id 1 is taken by the rule on line 2 (choose a number never "
              "used before)"},
        Fault{"Enabled", "rules:\n- {id: 1, enabled: maybe, when: always, actions: []}\n",
              "policy.yaml:2: rule 1: 'enabled' is 'maybe' (write true or false)"},
        Fault{"Name", "rules:\n- {id: 1, name: '', when: always, actions: []}\n",
              "policy.yaml:2: rule 1: a name is one line of 1 to 255 bytes, not ''"},
        Fault{"RuleNoMap", "rules: [delete]\n",
              "policy.yaml:1: rule number 1 of the list: a rule is a map of id, name, when and "
              "actions"},
        Fault{"RulesNoList", "rules: 5\n",
              "policy.yaml:1: 'rules' must be a list (write 'rules: []' for a policy without "
              "rules)"},
        Fault{"RulesMissing", "quarantine_areas: []\n",
              "policy.yaml:1: the key 'rules' is missing (write 'rules: []' for a policy without "
              "rules)"},
        Fault{"TopKey", "rulez: []\nrules: []\n",
              "policy.yaml:1: unknown key 'rulez' in a policy (did you mean 'rules'?)"},
        Fault{"Empty", "", "policy.yaml: a policy is a map of lists (write: rules: [])"},
        Fault{"List", "- a\n", "policy.yaml:1: a policy is a map of lists (write: rules: [])"},
        Fault{"AreaName", "rules: []\nquarantine_areas:\n- {aging_days: 1}\n",
              "policy.yaml:3: quarantine_areas: an entry needs a name (write: - {name: virus, "
              "aging_days: 7})"},
        Fault{
            "AreaDays", "rules: []\nquarantine_areas:\n- {name: a, aging_days: x}\n",
            "policy.yaml:3: quarantine_areas: aging_days 'x' (write a whole number, 0 to 36500; 0 "
            "keeps mail for good)"},
        Fault{"AreaDaysTooMany", "rules: []\narchive_areas:\n- {name: a, aging_days: 36501}\n",
              "policy.yaml:3: archive_areas: aging_days '36501' (write a whole number, 0 to 36500; "
              "0 keeps mail for good)"},
        Fault{"AreaUnknown",
              "quarantine_areas:\n- {name: virus}\nrules:\n"
              "- {id: 1, when: always, actions: [{quarantine: virsu}]}\n",
              "policy.yaml:4: rule 1: action 'quarantine' names no quarantine area: 'virsu' (did "
              "you mean 'virus'?)"},
        Fault{"AreaOfAnotherKind",
              "quarantine_areas:\n- {name: virus}\nrules:\n"
              "- {id: 1, when: always, actions: [{archive: virus}]}\n",
              "policy.yaml:4: rule 1: action 'archive' names no archive area: 'virus' (declare it "
              "under archive_areas: - {name: virus})"},
        Fault{"AreaAsList",
              "quarantine_areas:\n- {name: virus}\nrules:\n"
              "- {id: 1, when: always, actions: [{quarantine: [virus]}]}\n",
              "policy.yaml:4: rule 1: action 'quarantine' names no quarantine area: '' (write: "
              "quarantine: virus)"},
        Fault{"AreaMissing", "rules:\n- {id: 1, when: always, actions: [quarantine]}\n",
              "policy.yaml:2: rule 1: action 'quarantine' needs a value (write: quarantine: "
              "virus)"},
        Fault{"NoAddress",
              "rules:\n- {id: 1, when: always, actions: [{bcc: [a@x.example, 'b c']}]}\n",
              "policy.yaml:2: rule 1: action 'bcc' 'b c' is no address (write: user@example.org)"},
        Fault{"NoPort", "rules:\n- {id: 1, when: always, actions: [{handoff: mail.example}]}\n",
              "policy.yaml:2: rule 1: action 'handoff' needs a host and a port, not 'mail.example' "
              "(write: \"mail.example.org:25\", \"[2001:db8::1]:25\")"},
        Fault{"AreaKey", "rules: []\nquarantine_areas:\n- {name: a, ageing_days: 1}\n",
              "policy.yaml:3: quarantine_areas: unknown key 'ageing_days' in an entry (did you "
              "mean 'aging_days'?)"},
        Fault{"StampWithoutText", "rules: []\nstamps:\n- {name: a}\n",
              "policy.yaml:3: stamps: the stamp has no text (write text: or file:)"},
        Fault{"StampWithTwoTexts", "rules: []\nstamps:\n- {name: a, text: x, file: y}\n",
              "policy.yaml:3: stamps: the stamp has a text and a file (keep one of them)"},
        Fault{"StampEmpty", "rules: []\nstamps:\n- {name: a, text: ''}\n",
              "policy.yaml:3: stamps: the text is empty (write text: \"Confidential.\" or file: "
              "stamp.txt)"},
        Fault{"StampList", "rules: []\nstamps:\n- {name: a, text: [x]}\n",
              "policy.yaml:3: stamps: the text is a list (write one text)"},
        Fault{"StampOnlyABreak", "rules: []\nstamps:\n- name: a\n  text: \"\\n\"\n",
              "policy.yaml:4: stamps: the text is empty (write what the stamp is to say)"},
        Fault{"StampControlByte", "rules: []\nstamps:\n- name: a\n  text: \"a\\x03b\"\n",
              "policy.yaml:4: stamps: the text has control byte 3 (remove it)"},
        Fault{"StampPosition", "rules: []\nstamps:\n- {name: a, text: x, position: 1}\n",
              "policy.yaml:3: stamps: position is '1' (write top or end)"},
        Fault{"StampMode", "rules: []\nstamps:\n- {name: a, text: x, signed_and_tnef: no}\n",
              "policy.yaml:3: stamps: signed_and_tnef is 'no' (write leave or stamp)"},
        Fault{"StampNote", "rules: []\nstamps:\n- {name: a, text: x, note: [b]}\n",
              "policy.yaml:3: stamps: the note must be a text"},
        Fault{"StampKey", "rules: []\nstamps:\n- {name: a, text: x, positon: top}\n",
              "policy.yaml:3: stamps: unknown key 'positon' in an entry (did you mean "
              "'position'?)"},
        Fault{"StampFileInAText", "rules: []\nstamps:\n- {name: a, file: x.txt}\n",
              "policy.yaml:3: stamps: file: is for policies in files (write text: instead)"},
        Fault{"StampUnknown", "rules:\n- {id: 1, when: always, actions: [{stamp: a}]}\n",
              "policy.yaml:2: rule 1: action 'stamp' names no stamp: 'a' (declare it under stamps: "
              "- {name: a, text: \"Confidential.\"})"},
        Fault{"TagKey",
              "rules:\n- {id: 1, when: always, actions: [{tag_subject: {tag: x, sined: tag}}]}\n",
              "policy.yaml:2: rule 1: action 'tag_subject' unknown key 'sined' (did you mean "
              "'signed'?)"},
        Fault{"DeleteAttachmentsAlone",
              "rules:\n- {id: 1, when: always, actions: [delete_attachments]}\n",
              "policy.yaml:2: rule 1: action 'delete_attachments' needs a value (write: "
              "delete_attachments: matching)"},
        Fault{"AreaTwice", "rules: []\nquarantine_areas:\n- {name: a}\n- {name: a}\n",
              "policy.yaml:4: quarantine_areas: name 'a' is taken by line 3 (choose another)"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(Loader, MakesRecordsOfStamps) {
  const LoadedPolicy policy = loadGood(R"(
stamps:
  - name: plain
    text: Hi
  - name: whole
    position: top
    signed_and_tnef: stamp
    note: by legal
    text: |
      one
      %SENDER%

      two
rules:
  - {id: 1, when: always, actions: [{stamp: whole}, {stamp: plain}]}
)");
  ASSERT_EQ(policy.rows.objects.size(), 2u);
  EXPECT_EQ(policy.rows.objects[0].type, 2u);
  EXPECT_EQ(policy.rows.objects[0].setting, "2:1:2:Hi:0::");
  EXPECT_EQ(policy.rows.objects[1].setting, "1:2:17:one\x03%SENDER%\x03\x03two:8:by legal:");
  EXPECT_EQ(policy.rows.rules[0].actions[0].setting, "1-2");
  EXPECT_EQ(policy.rows.rules[0].actions[1].setting, "1-1");
}

class StampFile : public testing::Test {
 protected:
  StampFile() : folder_(testing::TempDir() + "stamp-file-" + std::to_string(::getpid()) + "/") {
    std::filesystem::create_directory(folder_);
  }
  ~StampFile() override { std::filesystem::remove_all(folder_); }

  void put(const std::string& name, const std::string& text) {
    std::ofstream(folder_ + name, std::ios::binary) << text;
  }
  /// The setting of the one stamp of a policy in the folder, or its faults.
  std::string stampFrom(const std::string& file) {
    put("policy.yaml", "stamps: [{name: a, file: " + file + "}]\nrules: []\n");
    Diagnostics diagnostics("p");
    const auto loaded = loadPolicyFile(folder_ + "policy.yaml", diagnostics);
    if (loaded) return loaded->rows.objects.at(0).setting;
    std::string faults;
    for (std::string text : textsOf(diagnostics)) {
      if (const auto at = text.find(folder_); at != std::string::npos) {
        text.erase(at, folder_.size());
      }
      faults += text;
    }
    return faults;
  }

  std::string folder_;
};

TEST_F(StampFile, IsFoundBesideThePolicy) {
  put("stamp.txt", "\xEF\xBB\xBFone\r\ntwo\n\n");
  EXPECT_EQ(stampFrom("stamp.txt"), "2:1:8:one\x03two\x03:0::");
  EXPECT_EQ(stampFrom(folder_ + "stamp.txt"), "2:1:8:one\x03two\x03:0::");
}

TEST_F(StampFile, IsNoPipeThatKeepsItsReaderWaiting) {
  ASSERT_EQ(::mkfifo((folder_ + "pipe").c_str(), 0600), 0);
  for (const std::string name : {"pipe", "/dev/null"}) {
    EXPECT_EQ(stampFrom(name), "p:1: stamps: file '" + name +
                                   "' is no regular file: name one (a relative name starts from "
                                   "the folder of the policy)");
  }
}

TEST_F(StampFile, SaysWhatIsWrongWithIt) {
  put("latin", "gr\xfc\xdf\n");
  put("second", "a\nb\x01\n");
  put("empty", "\n");
  put("long", std::string(65'537, 'x'));
  std::filesystem::create_directory(folder_ + "folder");
  EXPECT_EQ(stampFrom("latin"),
            "p:1: stamps: file 'latin' has in line 1 a byte that is not UTF-8 (save the file as "
            "UTF-8)");
  EXPECT_EQ(stampFrom("second"),
            "p:1: stamps: file 'second' has in line 2 control byte 1 (remove it)");
  EXPECT_EQ(stampFrom("empty"),
            "p:1: stamps: file 'empty' is empty (write what the stamp is to say)");
  EXPECT_EQ(stampFrom("long"), "p:1: stamps: file 'long' is longer than 65536 bytes (shorten it)");
  EXPECT_EQ(stampFrom("none"),
            "p:1: stamps: file 'none' cannot be read: No such file or directory (a relative name "
            "starts from the folder of the policy)");
  EXPECT_EQ(stampFrom("folder"),
            "p:1: stamps: file 'folder' is a folder (a relative name starts from the folder of "
            "the policy)");
}

TEST(Loader, ReportsEveryErrorAtOnce) {
  EXPECT_THAT(faultsOf("rules:\n"
                       "- {id: 1, when: alwys, actions: [delte]}\n"
                       "- {id: x, when: always, actions: [postpone]}\n"),
              ElementsAre(StartsWith("policy.yaml:2: rule 1: unknown condition"),
                          StartsWith("policy.yaml:2: rule 1: unknown action"),
                          StartsWith("policy.yaml:3: rule number 2 of the list: id 'x'"),
                          StartsWith("policy.yaml:3: rule number 2 of the list: action")));
}

TEST(Loader, CountsErrorsThatItDoesNotList) {
  std::string text = "rules:\n";
  for (int i = 1; i <= 500; ++i)
    text += "- {id: " + std::to_string(i) + ", when: x, actions: []}\n";
  Diagnostics diagnostics("policy.yaml");
  EXPECT_FALSE(loadPolicy(text, diagnostics).has_value());
  EXPECT_EQ(diagnostics.errorCount(), 500u);
  EXPECT_EQ(diagnostics.all().size(), 100u);
}

TEST(Loader, SaysWhyAFileCannotBeRead) {
  Diagnostics missing("nowhere.yaml");
  EXPECT_FALSE(loadPolicyFile("/nonexistent/nowhere.yaml", missing).has_value());
  EXPECT_THAT(textsOf(missing),
              ElementsAre("nowhere.yaml: cannot be read: No such file or directory"));
  Diagnostics folder("tmp");
  EXPECT_FALSE(loadPolicyFile(testing::TempDir(), folder).has_value());
  EXPECT_THAT(textsOf(folder), ElementsAre("tmp: is a folder (name the policy file in it)"));
}

TEST(Loader, RefusesAHugeFileWithoutReadingItWhole) {
  const std::string path = testing::TempDir() + "huge-policy.yaml";
  std::ofstream(path) << "rules: []\n";
  // Sparse: a hundred megabytes that take no room.
  std::ofstream(path, std::ios::in | std::ios::out).seekp(100 << 20) << "x";
  Diagnostics diagnostics("huge");
  EXPECT_FALSE(loadPolicyFile(path, diagnostics).has_value());
  EXPECT_THAT(textsOf(diagnostics),
              ElementsAre("huge: larger than 67108864 bytes (split the file)"));
  std::remove(path.c_str());
}

}  // namespace
}  // namespace gateway::policy
