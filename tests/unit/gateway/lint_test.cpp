#include "gateway/policy/lint.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/gateway/policy_texts.h"

namespace gateway::policy {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> doubtsAbout(std::string_view text) {
  const LoadedPolicy policy = loadGood(text);
  Diagnostics diagnostics("p");
  lintPolicy(policy.rows, policy.lines, diagnostics);
  EXPECT_FALSE(diagnostics.hasErrors());
  return textsOf(diagnostics);
}

TEST(Lint, FindsNothingInAPlainPolicy) {
  EXPECT_THAT(doubtsAbout("rules:\n"
                          "- {id: 1, name: a, when: {subject: x}, actions: [{x_header: 'X-A: b'}, "
                          "delete]}\n"
                          "- {id: 2, name: b, when: always, actions: [{x_header: 'X-B: b'}]}\n"
                          "- {id: 3, name: c, when: always, actions: [{postpone: '8:30'}]}\n"),
              IsEmpty());
}

// What stands before the rule that postpones: harmless twice, done with, or ending the run.
TEST(Lint, LetsARulePostponeBehindWhatDoesNotRepeatItself) {
  EXPECT_THAT(
      doubtsAbout(
          "archive_areas: [{name: j}]\n"
          "rules:\n"
          "- {id: 1, name: a, when: {subject: a}, actions: [{x_header: 'X-A: b'}]}\n"
          "- {id: 2, name: b, when: always, actions: [{delete_attachments: all}]}\n"
          "- {id: 3, name: c, when: {subject: c}, actions: [{archive: j}, delete]}\n"
          "- {id: 4, name: d, when: {subject: d}, actions: [{archive: j}], verdict: {reject: No}}\n"
          "- {id: 5, name: e, when: {subject: e}, actions: [{archive: j}, {postpone: '8:30'}]}\n"
          "- {id: 6, name: f, when: {subject: f}, actions: [{postpone: '9:30'}]}\n"
          "- {id: 7, name: g, when: always, actions: [{archive: j}]}\n"),
      IsEmpty());
}

struct Doubt {
  const char* name;
  const char* text;
  const char* doubt;
};

class Doubts : public testing::TestWithParam<Doubt> {};

TEST_P(Doubts, AreNamed) {
  EXPECT_THAT(doubtsAbout(GetParam().text), ElementsAre(GetParam().doubt));
}

INSTANTIATE_TEST_SUITE_P(
    All, Doubts,
    testing::Values(
        Doubt{"NothingDone", "rules:\n- {id: 1, when: always, actions: [virus_clean]}\n",
              "p:2: warning: rule 1: action 'virus_clean' does nothing (remove it)"},
        Doubt{"TwoNames",
              "quarantine_areas: [{name: worms, setting: '07:5:virus:'}]\n"
              "rules:\n- {id: 1, when: always, actions: [{quarantine: worms}]}\n",
              "p:1: warning: quarantine area 'worms' is called 'virus' in its settings string, and "
              "that is the name its mail is filed and logged under (write both alike)"},
        Doubt{"TwoDisposers",
              "rules:\n- id: 1\n  when: always\n  actions:\n  - postpone: '08:30'\n  - delete\n",
              "p:6: warning: rule 1: action 'delete' and 'postpone' both dispose of the message "
              "(keep one)"},
        Doubt{"ChangeLost",
              "rules:\n- id: 1\n  when: always\n  actions:\n  - delete\n  - x_header: 'X-A: b'\n",
              "p:6: warning: rule 1: action 'x_header' comes behind 'delete', which has disposed "
              "of the message: its change is lost (put it first)"},
        Doubt{"Unreached",
              "rules:\n- {id: 1, when: always, actions: [delete]}\n"
              "- {id: 2, when: {subject: x}, actions: [delete]}\n",
              "p:3: warning: rule 2: is never reached: rule 1 takes every message"},
        Doubt{"BehindAVerdict",
              "rules:\n- {id: 1, when: always, actions: [], verdict: {reject: No}}\n"
              "- {id: 2, when: {subject: x}, actions: [delete]}\n",
              "p:3: warning: rule 2: is never reached: rule 1 refuses every message"},
        Doubt{"VerdictOnATakenMessage",
              "rules:\n- {id: 1, when: {subject: x}, actions: [{handoff: 'h:25'}], verdict: "
              "{reject: No}}\n",
              "p:2: warning: rule 1: verdict 'reject' comes behind action 'handoff', which takes "
              "the message: the sender is told that it was refused (keep one; archive keeps a "
              "copy)"},
        Doubt{"VerdictOnAChange",
              "rules:\n- {id: 1, when: {subject: x}, actions: [{x_header: 'X-A: b'}], verdict: "
              "{tempfail: No}}\n",
              "p:2: warning: rule 1: verdict 'tempfail' refuses the message that action 'x_header' "
              "changes: nobody sees the change (remove the action)"},
        Doubt{"TokenInAVerdict",
              "rules:\n- {id: 1, when: {subject: x}, actions: [], verdict: {reject: 'Not %SENDER%'"
              "}}\n",
              "p:2: warning: rule 1: verdict 'reject' tells %SENDER% as it stands: tokens are not "
              "replaced in it"},
        Doubt{"NothingToFail",
              "rules:\n- {id: 1, when: {subject: x}, actions: [], verdict: {reject: No}, "
              "on_failure: accept}\n",
              "p:2: warning: rule 1: 'on_failure: accept' says nothing: the rule has no actions "
              "(remove it)"},
        Doubt{"PostponedBehindAStamp",
              "stamps: [{name: s, text: x}]\n"
              "rules:\n- {id: 1, when: {subject: x}, actions: [{x_header: 'X-A: b'}]}\n"
              "- {id: 2, when: {subject: x}, actions: [{stamp: s}]}\n"
              "- {id: 3, when: {subject: y}, actions: [{postpone: '8:30'}]}\n",
              "p:5: warning: rule 3: postpones what rule 2 may have worked on before: that acts "
              "again when the mail comes back (put the rule that postpones first)"},
        Doubt{"TakenAndAccepted",
              "archive_areas: [{name: j}]\n"
              "rules:\n- {id: 1, when: {subject: x}, actions: [delete, {archive: j}], on_failure: "
              "accept}\n",
              "p:3: warning: rule 1: action 'archive' comes behind 'delete': when it fails, the "
              "message is disposed of and yet goes on (put it first)"},
        Doubt{"Twice",
              "rules:\n- id: 1\n  when: always\n  actions:\n  - x_header: 'X-A: b'\n  - x_header: "
              "'X-A: b'\n",
              "p:6: warning: rule 1: action 'x_header' stands twice with the same value (remove "
              "one)"},
        Doubt{"Vital",
              "rules:\n- {id: 1, when: always, actions: [{x_header: 'Content-type: b'}]}\n",
              "p:2: warning: rule 1: action 'x_header' replaces 'Content-type', which mail "
              "programs and checks rely on (use a name that begins with X-)"},
        Doubt{"NoRules", "rules: []\n",
              "p: warning: there are no rules: every message passes unchanged"},
        Doubt{"NoActions", "rules:\n- {id: 1, when: always, actions: []}\n",
              "p:2: warning: rule 1: has no actions: matches are reported and nothing is done"},
        Doubt{"Off", "rules:\n- {id: 1, enabled: no, when: always, actions: [delete]}\n",
              "p:2: warning: rule 1: is switched off (enabled: false)"},
        Doubt{"SameName",
              "rules:\n- {id: 1, name: a, when: {subject: x}, actions: [delete]}\n"
              "- {id: 2, name: a, when: {subject: y}, actions: [delete]}\n",
              "p:3: warning: rule 2: name 'a' is also that of rule 1 (reports cannot tell them "
              "apart)"},
        Doubt{"Extension", "rules:\n- {id: 1, when: {attachment_name: exe}, actions: [delete]}\n",
              "p:2: warning: rule 1: attachment_name 'exe' matches a file of just that name "
              "(write: '*.exe' for an extension)"},
        Doubt{"DotExtension",
              "rules:\n- {id: 1, when: {attachment_name: .exe}, actions: [delete]}\n",
              "p:2: warning: rule 1: attachment_name '.exe' matches a file of just that name "
              "(write: '*.exe' for an extension)"},
        Doubt{"TagAsSet",
              "rules:\n- {id: 1, when: {subject: {matches: '[URGENT] now'}}, actions: [delete]}\n",
              "p:2: warning: rule 1: regular expression '[URGENT] now' looks for any one character "
              "of 'URGENT' (write: '\\[URGENT\\]' for the word in brackets)"},
        Doubt{"RegexAsGlob",
              "rules:\n- {id: 1, when: {not: {attachment_name: '.*\\.exe$'}}, actions: "
              "[delete]}\n",
              "p:2: warning: rule 1: attachment_name '.*\\.exe$' looks like a regular expression; "
              "names are matched by globs (write: '*.exe')"},
        Doubt{"Type", "rules:\n- {id: 1, when: {attachment_type: pdf}, actions: [delete]}\n",
              "p:2: warning: rule 1: attachment_type 'pdf' matches no type (write: '*/pdf')"},
        Doubt{"UsedArea",
              "quarantine_areas: [{name: virus}, {name: spam}]\n"
              "rules:\n- {id: 1, when: always, actions: [{quarantine: spam}]}\n",
              "p:1: warning: no rule refers to 'virus' (remove it, or leave it for later)"},
        Doubt{"ReservedName",
              "stamps: [{name: 'OPP:a', text: x}, {name: 'opp:a', text: x}]\n"
              "rules:\n- {id: 1, when: always, actions: [{stamp: 'OPP:a'}, {stamp: 'opp:a'}]}\n",
              "p:1: warning: name 'OPP:a' is reserved: kavi object refuses those that begin with "
              "OPP: (choose another)"},
        Doubt{"TwoPlaces",
              "quarantine_areas: [{name: v}]\n"
              "rules:\n- {id: 1, when: always, actions: [{quarantine: v}, {handoff: 'h:25'}]}\n",
              "p:3: warning: rule 1: action 'handoff' and 'quarantine' both dispose of the message "
              "(keep one)"},
        Doubt{"LateCopy",
              "rules:\n- {id: 1, when: always, actions: [{readdress: [a@x.example]}, {bcc: "
              "[b@x.example]}]}\n",
              "p:2: warning: rule 1: action 'bcc' comes behind 'readdress', which has disposed of "
              "the message: its change is lost (put it first)"},
        Doubt{"AddressTwice",
              "rules:\n- {id: 1, when: always, actions: [{bcc: [a@x.example, A@X.example]}]}\n",
              "p:2: warning: rule 1: action 'bcc' names 'A@X.example' twice (remove one)"},
        Doubt{"NoDomain", "rules:\n- {id: 1, when: always, actions: [{bcc: [root]}]}\n",
              "p:2: warning: rule 1: action 'bcc' sends to 'root', which has no domain (write: "
              "user@example.org)"},
        Doubt{"LateArchive",
              "archive_areas: [{name: j}]\n"
              "rules:\n- {id: 1, when: always, actions: [delete, {archive: j}]}\n",
              "p:3: warning: rule 1: action 'archive' comes behind 'delete': when it fails, the "
              "message is disposed of and yet stays (put it first)"},
        Doubt{"NoMarks",
              "rules:\n- {id: 1, when: {not: {attachment_name: '*.exe'}}, actions: "
              "[{delete_attachments: matching}]}\n",
              "p:2: warning: rule 1: action 'delete_attachments' removes nothing: the rule has no "
              "condition on attachments (add attachment_name or attachment_type, or write all)"},
        Doubt{"StampToken",
              "stamps:\n- {name: a, text: 'by %SENDR%'}\n"
              "rules:\n- {id: 1, when: always, actions: [{stamp: a}]}\n",
              "p:2: warning: stamp 'a' holds '%SENDR%', which is no token and stays as it is (did "
              "you mean %SENDER%?)"},
        Doubt{"TokensOfNotification",
              "notifications:\n- {name: n, recipients: [a@b.example], subject: '%SUBJCT%', body: "
              "'%FILNAME%'}\nrules:\n- {id: 1, when: always, actions: [{notify: n}]}\n",
              "p:2: warning: notification 'n' holds '%SUBJCT%', which is no token and stays as it "
              "is (did you mean %SUBJECT%?); nor is '%FILNAME%' (%FILENAME%?)"},
        Doubt{"TagToken",
              "rules:\n- {id: 1, when: always, actions: [{tag_subject: '%sender%: '}]}\n",
              "p:2: warning: rule 1: action 'tag_subject' holds '%sender%', which is no token and "
              "stays as it is (did you mean %SENDER%?)"},
        Doubt{"Encryption", "rules:\n- {id: 1, when: always, actions: [ibe_decrypt]}\n",
              "p:2: warning: rule 1: action 'ibe_decrypt' does nothing (remove it)"},
        Doubt{"UnusedArea",
              "quarantine_areas: [{name: virus}]\n"
              "rules:\n- {id: 1, when: always, actions: [delete]}\n",
              "p:1: warning: no rule refers to 'virus' (remove it, or leave it for later)"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(Lint, SeesMarksInsideOtherConditions) {
  EXPECT_THAT(doubtsAbout("rules:\n"
                          "- {id: 1, when: {all: [{subject: x}, {any: [{attachment_type: "
                          "'image/*'}]}]}, actions: [{delete_attachments: matching}]}\n"
                          "- {id: 2, when: {subject: y}, actions: [{delete_attachments: all}]}\n"),
              IsEmpty());
}

TEST(Lint, ASwitchedOffRuleHidesNoOther) {
  EXPECT_THAT(doubtsAbout("rules:\n"
                          "- {id: 1, enabled: false, when: always, actions: [delete]}\n"
                          "- {id: 2, when: {subject: x}, actions: [delete]}\n"),
              ElementsAre("p:2: warning: rule 1: is switched off (enabled: false)"));
}

}  // namespace
}  // namespace gateway::policy
