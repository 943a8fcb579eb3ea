// Each effect of a message happens once, though its sender tries again.
#include "host/delivery/message_effects.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "tests/unit/host/delivery/filing_bench.h"

namespace {

using namespace host::delivery;
using testing_host::FilingBench;
using testing_host::PlainMessage;
using testing_host::testClock;
using testing_host::theTime;

// What a test changes about a message and its action.
struct Attempt {
  std::optional<std::string> sender = "a@example.org";
  std::vector<std::string> recipients = {"b@example.org", "c@example.org"};
  std::string bytes = "Subject: x\r\n\r\nbody\r\n";
  unsigned int rule = 15;
  unsigned int position = 0;
  std::string setting = "2;7;9";
  std::string operation = "postpone";
  int callsBefore = 0;
};

class Effects : public ::testing::Test {
 protected:
  Effects() { theTime = 1'000'000; }

  // Whether the effect of the attempt happened. Its sender is told to try again.
  bool happens(const Attempt& attempt) {
    MessageEffects effects(bench_.store.get(), testClock);
    PlainMessage message(attempt.bytes);
    message.setEnvelope(attempt.sender, attempt.recipients);
    EXPECT_EQ(effects.beginMessage(message, attempt.bytes), AdapterError::None);
    EXPECT_EQ(effects.beginAction(attempt.rule, attempt.position, attempt.setting),
              AdapterError::None);
    for (int call = 0; call < attempt.callsBefore; ++call) {
      EXPECT_EQ(effects.once(attempt.operation, 60, [] { return AdapterError::None; }),
                AdapterError::None);
    }
    bool happened = false;
    EXPECT_EQ(effects.once(attempt.operation, 60,
                           [&] {
                             happened = true;
                             return AdapterError::None;
                           }),
              AdapterError::None);
    EXPECT_EQ(effects.finalAnswer(FinalAnswer::TemporaryFailure), AdapterError::None);
    return happened;
  }

  FilingBench bench_;
};

TEST_F(Effects, HappenOnceForTheSameAttempt) {
  EXPECT_TRUE(happens({}));
  EXPECT_FALSE(happens({}));
  EXPECT_FALSE(happens({}));
}

TEST_F(Effects, DoNotDependOnTheOrderOfRecipients) {
  Attempt attempt;
  EXPECT_TRUE(happens(attempt));
  std::swap(attempt.recipients[0], attempt.recipients[1]);
  EXPECT_FALSE(happens(attempt));
}

TEST_F(Effects, HappenForEverythingElseThatDiffers) {
  const std::function<void(Attempt&)> changes[] = {
      [](Attempt&) {},
      [](Attempt& a) { a.sender = "x@example.org"; },
      [](Attempt& a) { a.sender = ""; },
      [](Attempt& a) { a.sender.reset(); },
      [](Attempt& a) { a.recipients = {"b@example.org"}; },
      [](Attempt& a) { a.recipients = {}; },
      [](Attempt& a) {
        a.recipients = {"b@example.org", "b@example.org", "c@example.org"};
      },
      [](Attempt& a) { a.recipients = {"b@example.orgc@example.org"}; },
      [](Attempt& a) {
        a.recipients = {"b@example.org", "", "c@example.org"};
      },
      [](Attempt& a) { a.bytes += " "; },
      [](Attempt& a) { a.bytes = ""; },
      [](Attempt& a) { a.rule = 16; },
      [](Attempt& a) { a.position = 1; },
      [](Attempt& a) { a.setting = "2;7;8"; },
      [](Attempt& a) { a.setting = ""; },
      [](Attempt& a) { a.operation = "delete"; },
      [](Attempt& a) { a.callsBefore = 1; },
      [](Attempt& a) { a.callsBefore = 2; },
  };
  for (const auto& change : changes) {
    Attempt attempt;
    change(attempt);
    EXPECT_TRUE(happens(attempt)) << &change - changes;
  }
  for (const auto& change : changes) {
    Attempt attempt;
    change(attempt);
    EXPECT_FALSE(happens(attempt)) << &change - changes;
  }
}

TEST_F(Effects, AreForgottenWithEveryFinalAnswerButATemporaryFailure) {
  for (const FinalAnswer answer : {FinalAnswer::Accepted, FinalAnswer::Rejected,
                                   FinalAnswer::Discarded, FinalAnswer::TemporaryFailure}) {
    MessageEffects effects(bench_.store.get());
    ASSERT_EQ(effects.beginMessage(bench_.message, "x"), AdapterError::None);
    ASSERT_EQ(effects.beginAction(1, 0, "x"), AdapterError::None);
    ASSERT_EQ(effects.once("delete", 60, [] { return AdapterError::None; }), AdapterError::None);
    EXPECT_EQ(bench_.store->memory().effectCount(), 1u);
    EXPECT_EQ(effects.finalAnswer(answer), AdapterError::None);
    EXPECT_EQ(bench_.store->memory().effectCount(),
              answer == FinalAnswer::TemporaryFailure ? 1u : 0u);
  }
}

TEST_F(Effects, SayWhenTheyCannotBeForgotten) {
  MessageEffects effects(bench_.store.get());
  ASSERT_EQ(effects.beginMessage(bench_.message, "x"), AdapterError::None);
  ASSERT_EQ(effects.beginAction(1, 0, "x"), AdapterError::None);
  ASSERT_EQ(effects.once("delete", 60, [] { return AdapterError::None; }), AdapterError::None);
  bench_.store->failAll(host::store::StoreError::Busy);
  EXPECT_EQ(effects.finalAnswer(FinalAnswer::Accepted), AdapterError::IndexBusy);
  EXPECT_EQ(effects.lastFault(), "the index is told to fail");
}

TEST_F(Effects, OfAnActionThatAsksForNothingAreNone) {
  MessageEffects effects(bench_.store.get());
  ASSERT_EQ(effects.beginMessage(bench_.message, "x"), AdapterError::None);
  ASSERT_EQ(effects.beginAction(1, 0, "x"), AdapterError::None);
  ASSERT_EQ(effects.finalAnswer(FinalAnswer::Accepted), AdapterError::None);
  EXPECT_TRUE(bench_.store->calls().empty()) << "changes in place write nothing";
}

TEST_F(Effects, AreNotTrackedForWhoTellsNothing) {
  MessageEffects effects(bench_.store.get());
  int happened = 0;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(effects.once("delete", 60,
                           [&] {
                             ++happened;
                             return AdapterError::None;
                           }),
              AdapterError::None);
  }
  EXPECT_EQ(happened, 3);
  EXPECT_TRUE(bench_.store->calls().empty());
  EXPECT_EQ(effects.beginAction(1, 0, "x"), AdapterError::InvalidArgument) << "of no message";
}

TEST_F(Effects, AreNotBegunWhenTheLedgerIsDown) {
  MessageEffects effects(bench_.store.get());
  ASSERT_EQ(effects.beginMessage(bench_.message, "x"), AdapterError::None);
  ASSERT_EQ(effects.beginAction(1, 0, "x"), AdapterError::None);
  bench_.store->failAll(host::store::StoreError::Unavailable);
  bool happened = false;
  EXPECT_EQ(effects.once("delete", 60,
                         [&] {
                           happened = true;
                           return AdapterError::None;
                         }),
            AdapterError::IndexUnavailable);
  EXPECT_FALSE(happened);
}

TEST_F(Effects, HaveHappenedThoughTheLedgerFailsBehindThem) {
  MessageEffects effects(bench_.store.get());
  ASSERT_EQ(effects.beginMessage(bench_.message, "x"), AdapterError::None);
  ASSERT_EQ(effects.beginAction(1, 0, "x"), AdapterError::None);
  bench_.store->failCall(2);
  EXPECT_EQ(effects.once("delete", 60, [] { return AdapterError::None; }), AdapterError::None);
  EXPECT_TRUE(bench_.store->fired());
}

TEST_F(Effects, ThatFailedHappenWithTheNextAttempt) {
  Attempt attempt;
  {
    MessageEffects effects(bench_.store.get(), testClock);
    PlainMessage message(attempt.bytes);
    message.setEnvelope(attempt.sender, attempt.recipients);
    ASSERT_EQ(effects.beginMessage(message, attempt.bytes), AdapterError::None);
    ASSERT_EQ(effects.beginAction(attempt.rule, attempt.position, attempt.setting),
              AdapterError::None);
    EXPECT_EQ(effects.once(attempt.operation, 60, [] { return AdapterError::DiskFull; }),
              AdapterError::DiskFull);
    EXPECT_EQ(effects.once("delete", 60, []() -> AdapterError { throw std::bad_alloc(); }),
              AdapterError::OutOfMemory);
  }
  EXPECT_EQ(bench_.store->memory().effectCount(), 0u);
  EXPECT_TRUE(happens(attempt));
}

TEST_F(Effects, ThatAreUncertainAreLeftWhereTheyCanBeLookedFor) {
  for (const std::string intended : {"", "there"}) {
    MessageEffects effects(bench_.store.get(), testClock);
    ASSERT_EQ(effects.beginMessage(bench_.message, intended), AdapterError::None);
    ASSERT_EQ(effects.beginAction(1, 0, "x"), AdapterError::None);
    const auto body = [] { return AdapterError::Uncertain; };
    EXPECT_EQ(effects.once("handoff", 60, body, intended), AdapterError::Uncertain);
    EXPECT_EQ(bench_.store->memory().effectCount(), intended.empty() ? 0u : 1u);
  }
}

TEST_F(Effects, ThatAnotherAttemptIsAtAreLeftToItUntilItsLeaseIsOut) {
  MessageEffects first(bench_.store.get(), testClock);
  MessageEffects second(bench_.store.get(), testClock);
  for (MessageEffects* effects : {&first, &second}) {
    ASSERT_EQ(effects->beginMessage(bench_.message, "x"), AdapterError::None);
    ASSERT_EQ(effects->beginAction(1, 0, "x"), AdapterError::None);
  }
  MessageEffects::Ticket ticket;
  ASSERT_EQ(first.begin("delete", 60, "there", ticket), AdapterError::None);
  MessageEffects::Ticket other;
  theTime += 59;
  EXPECT_EQ(second.begin("delete", 60, "elsewhere", other), AdapterError::UnderWay);
  ASSERT_EQ(second.beginAction(1, 0, "x"), AdapterError::None);
  theTime += 1;
  EXPECT_EQ(second.begin("delete", 60, "elsewhere", other), AdapterError::None);
  EXPECT_TRUE(other.isTakenOver());
  EXPECT_EQ(other.answer.result, "there");
  EXPECT_EQ(first.finish(ticket, "there"), AdapterError::UnderWay) << "its claim is gone";
  EXPECT_EQ(second.finish(other, "elsewhere"), AdapterError::None);
}

}  // namespace
