#include "gateway/cli/report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string>

#include "gateway/cli/message_job.h"
#include "tests/unit/gateway/policy_texts.h"

namespace gateway::cli {
namespace {

using host::message::Buffer;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

constexpr char kPolicy[] =
    "rules:\n"
    "- {id: 1, name: \"m\\xE4rk\", when: {subject: x}, actions: [{x_header: 'X-A: b'}]}\n"
    "- {id: 2, name: hold, when: always, actions: [{postpone: '8:30'}]}\n"
    "- {id: 3, name: late, when: always, actions: [delete]}\n";

MessageResult resultOf(const std::string& bytes, const char* policyText = kPolicy) {
  JobSettings settings;
  settings.policy = policy::snapshotOf(policyText);
  static const InputFile kFile{"in.eml", "in.eml", true};
  InputMessage input;
  input.file = &kFile;
  input.bytes = Buffer::copyOf(bytes);
  return runJob(std::move(input), settings);
}

const Style kPlain(Colour::Never, STDOUT_FILENO);

TEST(TextReport, SaysWhatHappened) {
  const MessageResult result = resultOf("From: a@x.example\nTo: b@x.example\nSubject: x\n\nbody\n");
  EXPECT_EQ(textReport(result, kPlain, false),
            "in.eml  51 bytes\n"
            "  from     <a@x.example> (From)\n"
            "  to       <b@x.example> (To)\n"
            "  rule     1 märk\n"
            "           x_header: X-A: b             done, header added: X-A (+7 bytes)\n"
            "  rule     2 hold\n"
            "           postpone: 08:30              done, disposed of\n"
            "  rule     3 late  matched, but not reached\n"
            "  verdict  disposed of: does not go on\n");
}

constexpr char kAccepting[] =
    "archive_areas: [{name: j}]\n"
    "rules:\n"
    "- {id: 1, name: a, when: always, on_failure: accept, actions: [{x_header: 'X-A: b'}, "
    "{archive: j}, {tag_subject: '[T] '}]}\n"
    "- {id: 2, name: b, when: always, actions: [], verdict: {tempfail: Not today}}\n";
constexpr char kRejecting[] =
    "rules:\n- {id: 9, name: no, when: always, actions: [], verdict: {reject: Not here}}\n";

TEST(TextReport, SaysWhatFailedAndWasAccepted) {
  // Without a field there is nothing that an action could change.
  const std::string text = textReport(resultOf("no field\n", kAccepting), kPlain, false);
  EXPECT_THAT(text, HasSubstr("           failure accepted (action x_header of rule 1): goes on as "
                              "it stood before this rule\n"));
  EXPECT_THAT(text, HasSubstr("  verdict  refused for now: does not go on, stays with its sender "
                              "(rule 2: Not today)\n"));
}

TEST(TextReport, SaysWhatARuleAnswered) {
  const MessageResult result = resultOf("Subject: x\n\n", kRejecting);
  EXPECT_THAT(textReport(result, kPlain, false),
              HasSubstr("  verdict  rejected: does not go on (rule 9: Not here)\n"));
  Summary summary;
  summary.add(result);
  EXPECT_FALSE(summary.failed());
  EXPECT_FALSE(summary.hasTempFailed());
  EXPECT_THAT(summary.text(kPlain, 0), HasSubstr(", 1 rejected"));
  summary.add(resultOf("no field\n", kAccepting));
  EXPECT_TRUE(summary.hasTempFailed());
  EXPECT_THAT(summary.brief(), HasSubstr(", 1 rejected, 1 refused for now"));
}

TEST(JsonReport, SaysWhatARuleAnsweredAndWhatWasAccepted) {
  json report = json::parse(jsonReport(resultOf("Subject: x\n\n", kRejecting)));
  EXPECT_EQ(report["verdict"], "rejected");
  EXPECT_EQ(report["verdict_rule"], 9);
  EXPECT_EQ(report["verdict_text"], "Not here");
  EXPECT_FALSE(report.contains("output_bytes"));
  report = json::parse(jsonReport(resultOf("no field\n", kAccepting)));
  EXPECT_EQ(report["verdict"], "tempfailed");
  EXPECT_EQ(report["rules"][0]["failure_accepted"],
            json::parse(R"({"failure": "action x_header of rule 1", "effects": []})"));
  EXPECT_FALSE(report["rules"][1].contains("failure_accepted"));
}

TEST(TextReport, SaysThatNothingHappened) {
  EXPECT_EQ(textReport(resultOf("A: b\n\n", "rules: []\n"), kPlain, false),
            "in.eml  6 bytes\n"
            "  from     <> (none)\n"
            "  to       nobody (none)\n"
            "  rules    none matched\n"
            "  verdict  unchanged: goes on byte for byte as it came\n");
}

TEST(TextReport, GivesTheReasonOfAFailure) {
  // A message without a root entity cannot take a header.
  const MessageResult result =
      resultOf("", "rules:\n- {id: 1, name: n, when: always, actions: [{x_header: 'X-A: b'}]}\n");
  const std::string report = textReport(result, kPlain, false);
  EXPECT_THAT(report,
              HasSubstr("x_header: X-A: b             failed: the message has no header\n"));
  EXPECT_THAT(report, HasSubstr("verdict  failed: stands as it came\n"));
  Summary summary;
  summary.add(result);
  EXPECT_TRUE(summary.failed());
  EXPECT_THAT(summary.text(kPlain, 1.5), HasSubstr("1 message in 1.50 s: 0 unchanged, 0 changed, "
                                                   "0 disposed of, 1 failed\n"));
}

TEST(TextReport, LetsNoControlBytesThrough) {
  const MessageResult result = resultOf("From: \"x\"\x1b[2J <a\x1b@x.example>\nSubject: \x07\n\n");
  const std::string report = textReport(result, Style(Colour::Never, 1), true);
  for (const char c : report) {
    EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20) << static_cast<int>(c);
  }
}

TEST(TextReport, ColoursOnlyWhenAsked) {
  const MessageResult result = resultOf("A: b\n\n");
  EXPECT_THAT(textReport(result, kPlain, false), Not(HasSubstr("\x1b")));
  EXPECT_THAT(textReport(result, Style(Colour::Always, 1), false), HasSubstr("\x1b[1m"));
}

TEST(JsonReport, HoldsEverything) {
  const MessageResult result = resultOf("From: a@x.example\nTo: b@x.example\nSubject: x\n\nbody\n");
  const std::string line = jsonReport(result);
  EXPECT_THAT(line, Not(HasSubstr("\n")));
  const json report = json::parse(line);
  EXPECT_EQ(report["input"], "in.eml");
  EXPECT_EQ(report["bytes"], 51);
  EXPECT_EQ(report["verdict"], "disposed");
  EXPECT_EQ(report["disposed"], true);
  EXPECT_EQ(report["envelope"]["from"], "a@x.example");
  EXPECT_EQ(report["envelope"]["rcpt_source"], "To");
  ASSERT_EQ(report["rules"].size(), 3u);
  const json& action = report["rules"][0]["actions"][0];
  EXPECT_EQ(action["action"], "x_header");
  EXPECT_EQ(action["code"], 18);
  EXPECT_EQ(action["setting"], "X-A:b");
  EXPECT_EQ(action["result"], true);
  EXPECT_EQ(action["disposed"], false);
  EXPECT_EQ(action["changes"][0]["kind"], "header_added");
  EXPECT_EQ(action["changes"][0]["what"], "X-A");
  EXPECT_EQ(action["bytes_after"], 58);
  EXPECT_EQ(report["rules"][2]["reached"], false);
  EXPECT_EQ(report["calls"][0]["operation"], "postpone");
  EXPECT_FALSE(report.contains("output"));
  EXPECT_FALSE(report.contains("error"));
}

TEST(JsonReport, IsUtf8WhateverTheMessageHolds) {
  const std::string line =
      jsonReport(resultOf("From: <\xff\xfe@x.example>\nSubject: x\xff\n\nbody\n"));
  EXPECT_TRUE(json::accept(line));
}

TEST(JsonReport, NamesWhatCannotBeRead) {
  JobSettings settings;
  settings.policy = policy::snapshotOf("rules: []\n");
  const InputFile file{"/nonexistent/x.eml", "x.eml", true};
  InputMessage input;
  input.file = &file;
  const MessageResult result = runJob(std::move(input), settings);
  const json report = json::parse(jsonReport(result));
  EXPECT_EQ(report["input"], "/nonexistent/x.eml");
  EXPECT_THAT(report["error"], HasSubstr("No such file"));
  EXPECT_FALSE(report.contains("verdict"));
  Summary summary;
  summary.add(result);
  EXPECT_TRUE(summary.failed());
  EXPECT_EQ(summary.messages(), 0u);
}

TEST(Terminal, WritesNumbersForPeople) {
  EXPECT_EQ(withThousands(0), "0");
  EXPECT_EQ(withThousands(999), "999");
  EXPECT_EQ(withThousands(1000), "1,000");
  EXPECT_EQ(withThousands(1234567), "1,234,567");
  EXPECT_EQ(counted(1, "byte", "bytes"), "1 byte");
  EXPECT_EQ(counted(0, "byte", "bytes"), "0 bytes");
  EXPECT_EQ(padded("\xc3\xa4", 3), "\xc3\xa4  ");
}

}  // namespace
}  // namespace gateway::cli
