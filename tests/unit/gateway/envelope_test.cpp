#include "gateway/cli/envelope.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "tests/unit/gateway/messages.h"

namespace gateway::cli {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Case {
  const char* name;
  const char* header;
  const char* sender;
  const char* senderSource;
  std::vector<std::string> recipients;
  const char* recipientsSource;
};

class Choice : public testing::TestWithParam<Case> {};

TEST_P(Choice, FollowsTheHeader) {
  const ChosenEnvelope chosen = chooseEnvelope(*withHeader(GetParam().header), std::nullopt, {});
  EXPECT_EQ(chosen.envelope.sender, GetParam().sender);
  EXPECT_EQ(chosen.senderSource, GetParam().senderSource);
  EXPECT_EQ(chosen.envelope.recipients, GetParam().recipients);
  EXPECT_EQ(chosen.recipientsSource, GetParam().recipientsSource);
}

INSTANTIATE_TEST_SUITE_P(
    All, Choice,
    testing::Values(
        Case{"Trace",
             "Return-Path: <r@example.com>\nDelivered-To: d@example.com\nFrom: f@x\nTo: t@x\n",
             "r@example.com",
             "Return-Path",
             {"d@example.com"},
             "Delivered-To"},
        Case{"NullSender", "Return-Path: <>\nFrom: f@example.com\n", "", "Return-Path", {}, "none"},
        Case{"From",
             "From: F <f@example.com>, g@example.com\nTo: a@x.example\nCc: B <b@x.example>\n",
             "f@example.com",
             "From",
             {"a@x.example", "b@x.example"},
             "To, Cc"},
        Case{"EmptyReturnPath",
             "Return-Path:\nFrom: f@example.com\nTo: a@x.example\n",
             "f@example.com",
             "From",
             {"a@x.example"},
             "To"},
        Case{"FirstDeliveredTo",
             "Delivered-To: a@x.example\nDelivered-To: b@x.example\n",
             "",
             "none",
             {"a@x.example"},
             "Delivered-To"},
        Case{"EachOnce",
             "To: a@x.example, a@x.example\nTo: b@x.example\nCc: a@x.example\n",
             "",
             "none",
             {"a@x.example", "b@x.example"},
             "To, Cc"},
        Case{"Group",
             "To: team: a@x.example, b@x.example;\n",
             "",
             "none",
             {"a@x.example", "b@x.example"},
             "To"},
        Case{"EmptyGroup",
             "To: undisclosed-recipients:;\nCc: c@x.example\n",
             "",
             "none",
             {"c@x.example"},
             "Cc"},
        Case{"Nothing", "Subject: x\n", "", "none", {}, "none"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(Choice, WhatIsGivenGoesFirst) {
  const auto message = withHeader("Return-Path: <r@example.com>\nTo: t@example.com\n");
  const ChosenEnvelope chosen = chooseEnvelope(*message, "", {"x@example.com"});
  EXPECT_EQ(chosen.envelope.sender, "");
  EXPECT_EQ(chosen.senderSource, "--from");
  EXPECT_THAT(chosen.envelope.recipients, ElementsAre("x@example.com"));
  EXPECT_EQ(chosen.recipientsSource, "--rcpt");
}

TEST(Choice, AnEmptyMessageHasNone) {
  const ChosenEnvelope chosen = chooseEnvelope(*parsed(""), std::nullopt, {});
  EXPECT_EQ(chosen.senderSource, "none");
  EXPECT_THAT(chosen.envelope.recipients, IsEmpty());
}

TEST(PlainAddress, TakesBracketsOffAndRefusesControls) {
  EXPECT_EQ(plainAddress("<a@b>"), "a@b");
  EXPECT_EQ(plainAddress("a@b"), "a@b");
  EXPECT_EQ(plainAddress("<>"), "");
  EXPECT_EQ(plainAddress("a@b\r\nRCPT TO:<c@d>"), std::nullopt);
  EXPECT_EQ(plainAddress("a b"), std::nullopt);
  EXPECT_EQ(plainAddress("<a@b"), std::nullopt);
  EXPECT_EQ(plainAddress("a@b,c@d"), std::nullopt);
  EXPECT_EQ(plainAddress("a@"), std::nullopt);
  EXPECT_EQ(plainAddress("@b"), std::nullopt);
  EXPECT_EQ(plainAddress("\"a b\"@c"), "\"a b\"@c");
}

}  // namespace
}  // namespace gateway::cli
