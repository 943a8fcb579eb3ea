#include "gateway/policy/matcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gateway/policy/yaml_reader.h"
#include "gateway/scan/message_facts.h"
#include "tests/unit/gateway/messages.h"

namespace gateway::policy {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Matcher compiled(const std::string& yaml) {
  Diagnostics diagnostics("p");
  const auto document = readYaml(yaml, diagnostics);
  const auto condition = parseCondition(
      *document->root(), [&yaml](int, const std::string& text) { ADD_FAILURE() << yaml << text; });
  return Matcher(condition.value());
}

bool holds(const std::string& yaml, const host::message::Message& message) {
  std::vector<std::size_t> marked;
  return compiled(yaml).matches(scan::MessageFacts(message), marked);
}

struct Case {
  const char* condition;
  bool holds;
};

class Matching : public testing::TestWithParam<Case> {};

TEST_P(Matching, GoesByTheFacts) {
  auto message = withHeader(
      "From: Somebody <somebody@example.org>\n"
      "Subject: =?utf-8?Q?=C3=84nderung?= of plans\n"
      "X-Spam-Flag: YES, score=12\n"
      "X-Twice: one\n"
      "X-Twice: two\n");
  message->setEnvelope({.sender = "bounce@example.org",
                        .recipients = {"a@example.com", "B@example.net"},
                        .senderDisplayName = {}});
  EXPECT_EQ(holds(GetParam().condition, *message), GetParam().holds) << GetParam().condition;
}

INSTANTIATE_TEST_SUITE_P(
    All, Matching,
    testing::Values(
        Case{"always", true}, Case{"{not: always}", false},
        Case{"{header: {name: x-spam-flag, matches: '^yes'}}", true},
        Case{"{header: {name: X-Spam-Flag, matches: '(?-i)^yes'}}", false},
        Case{"{header: {name: X-Spam-Flag, matches: ['^no', 'score=1\\d']}}", true},
        Case{"{header: {name: X-Twice, matches: '^two$'}}", true},
        Case{"{header: {name: X-Twice}}", true}, Case{"{header: {name: X-Thrice}}", false},
        Case{"{header: {name: X-Thrice, matches: '.*'}}", false},
        Case{"{subject: {matches: '^änderung of'}}", true}, Case{"{subject: 'plan$'}", false},
        Case{"{sender: {matches: '^bounce@'}}", true},
        Case{"{sender: {matches: 'somebody'}}", false},
        Case{"{recipient: {matches: '^b@example\\.net$'}}", true},
        Case{"{recipient: {matches: 'bounce'}}", false}, Case{"{size: {over: 10}}", true},
        Case{"{size: {over: 1kB}}", false}, Case{"{size: {under: 1kB}}", true},
        Case{"{size: {over: 10, under: 20}}", false}, Case{"{attachment_name: '*'}", false},
        Case{"{attachment_type: '*'}", false}, Case{"{all: [always, {size: {over: 10}}]}", true},
        Case{"{all: [always, {not: always}]}", false},
        Case{"{any: [{not: always}, {subject: plans}]}", true},
        Case{"{any: [{not: always}, {subject: nothing}]}", false}));

TEST(Matcher, AnySubjectCounts) {
  const auto message = withHeader("Subject: harmless\nsubject: invoice\n");
  EXPECT_TRUE(holds("{subject: '^invoice$'}", *message));
  EXPECT_TRUE(holds("{subject: '^harmless$'}", *message));
  EXPECT_FALSE(holds("{subject: '^$'}", *message));
  EXPECT_TRUE(holds("{subject: '^$'}", *withHeader("From: a@x.example\n")));
}

TEST(Matcher, AnyDeclaredTypeCounts) {
  const auto message =
      withHeader("Content-Type: text/plain\nContent-Type: application/x-msdownload\n");
  EXPECT_TRUE(holds("{attachment_type: '*/x-msdownload'}", *message));
  EXPECT_TRUE(holds("{attachment_type: 'text/plain'}", *message));
}

TEST(Matcher, SizesAreOverAndUnderNotEqual) {
  const auto message = withHeader("X: y\n");
  const std::string size = std::to_string(message->receivedBytes().size());
  EXPECT_FALSE(holds("{size: {over: " + size + "}}", *message));
  EXPECT_FALSE(holds("{size: {under: " + size + "}}", *message));
}

/// The indexes of the attachments that a condition marks; {99} when it does not hold.
std::vector<std::size_t> marks(const std::string& yaml) {
  const auto message = withAttachments();
  const scan::MessageFacts facts(*message);
  std::vector<std::size_t> marked = {7};
  if (!compiled(yaml).matches(facts, marked)) {
    EXPECT_THAT(marked, IsEmpty());
    return {99};
  }
  return marked;
}

TEST(Matcher, MarksTheAttachmentsThatMadeItHold) {
  EXPECT_THAT(marks("{attachment_name: ['*.exe', '*.scr']}"), ElementsAre(0));
  EXPECT_THAT(marks("{attachment_name: '*.js'}"), ElementsAre(3));
  EXPECT_THAT(marks("{attachment_type: ['image/*', 'text/*']}"), ElementsAre(1, 3));
  EXPECT_THAT(marks("{attachment_name: '*.txt'}"), ElementsAre(99));
  // The name in Content-Type is not the one in Content-Disposition; either counts.
  EXPECT_THAT(marks("{attachment_name: 'ignored.bin'}"), ElementsAre(0));
}

TEST(Matcher, AnyMarksForEachOfItsConditions) {
  EXPECT_THAT(marks("{any: [{attachment_type: 'image/*'}, {subject: files}, "
                    "{attachment_name: '*.exe'}]}"),
              ElementsAre(0, 1));
  EXPECT_THAT(marks("{any: [always, {attachment_name: '*.exe'}]}"), ElementsAre(0));
}

TEST(Matcher, MarksNothingForWhatDidNotHold) {
  EXPECT_THAT(marks("{any: [{all: [{attachment_name: '*.exe'}, {subject: other}]}, always]}"),
              IsEmpty());
  EXPECT_THAT(marks("{not: {attachment_name: '*.txt'}}"), IsEmpty());
  EXPECT_THAT(marks("{not: {not: {attachment_name: '*.exe'}}}"), IsEmpty());
  EXPECT_THAT(marks("{all: [{attachment_name: '*.exe'}, {attachment_name: '*.js'}]}"),
              ElementsAre(0, 3));
}

TEST(Matcher, SeesThroughNamesThatASystemWouldShorten) {
  EXPECT_THAT(nameForms("a.exe"), ElementsAre("a.exe"));
  EXPECT_THAT(nameForms("a.exe. "), ElementsAre("a.exe. ", "a.exe"));
  EXPECT_THAT(nameForms("..\\dir\\a.exe"), ElementsAre("..\\dir\\a.exe", "a.exe"));
  EXPECT_THAT(nameForms("/x/y"), ElementsAre("/x/y", "y"));
  EXPECT_THAT(nameForms("dir/"), ElementsAre("dir/"));
  const auto message = withHeader(
      "Content-Type: application/octet-stream\n"
      "Content-Disposition: attachment; filename=\"bill.exe .\"\n");
  EXPECT_TRUE(holds("{attachment_name: '*.exe'}", *message));
}

}  // namespace
}  // namespace gateway::policy
