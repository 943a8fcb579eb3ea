#include "library/actions/disposition/readdress.h"

#include <chrono>
#include <list>
#include <random>

#include "tests/fakes/fault_plan.h"
#include "tests/unit/library/actions/disposition/watching_adapter.h"
#include "tests/unit/library/library_test.h"

namespace {

using fakes::FaultKind;
using fakes::FaultPlan;
using fakes::LogLines;
using Kavi::ScanToken;
using Recipients = std::list<std::string>;

class ReaddressTest : public LibraryTest {
 protected:
  ReaddressTest() {
    tokens.set(ScanToken::RuleId, "15");
    recipients() = {"first@a.example"};
  }
  Recipients& recipients() { return msg.facts().recipients; }
  bool take(ActReaddress& runs) {
    flag = false;
    return runs.takeAction(&msg, nullptr, flag, tokens, watching, namedObjects);
  }

  fakes::Message msg;
  WatchingAdapter watching{msg};
  ActReaddress action;
  bool flag = false;
};

struct SameCase {
  const char* a;
  const char* b;
  bool same;
};

const SameCase kSame[] = {
    {"user@a.example", "user@a.example", true},
    {" User@A.Example ", "user@a.example", true},
    {"   ", "", true},
    {"", "", true},
    {"user@a.example", "<user@a.example>", false},
    {"user@a.example", "user@a.example\t", false},
    {"\tuser@a.example", "user@a.example", false},
    {"user@a.example", "user@a.exampl", false},
    {"user@a.example", "user@b.example", false},
    {"user @a.example", "user@a.example", false},
    {"\xC3\x84@a.example", "\xC3\xA4@a.example", false},
};

TEST_F(ReaddressTest, AddressesAreTheSameButForSpacesAroundAndCase) {
  for (const SameCase& test : kSame) {
    EXPECT_EQ(ActReaddress::_isSameEmailAddress(test.a, test.b), test.same)
        << "'" << test.a << "' '" << test.b << "'";
    EXPECT_EQ(ActReaddress::_isSameEmailAddress(test.b, test.a), test.same);
  }
}

TEST_F(ReaddressTest, DropsDoubledRecipientsAndKeepsTheFirstSpelling) {
  recipients() = {"A@x", "b@x", "C@x", "a@x"};
  EXPECT_TRUE(ActReaddress::_removeDuplicatedRcpt(&msg));
  EXPECT_EQ(msg.facts().calls, (Texts{"getRcpt", "setRcpt A@x;b@x;C@x; replace"}));
  EXPECT_EQ(recipients(), (Recipients{"A@x", "b@x", "C@x"}));
}

TEST_F(ReaddressTest, DropsBlankRecipientsAndTrimsTheOthers) {
  recipients() = {"  ", " a@x ", "", "A@X", "\t"};
  EXPECT_TRUE(ActReaddress::_removeDuplicatedRcpt(&msg));
  EXPECT_EQ(msg.facts().calls.back(), "setRcpt a@x;\t; replace");
}

TEST_F(ReaddressTest, DropsNobodyWhenTheRecipientsAreUnknown) {
  const FaultPlan plan(FaultKind::PlatformFailure, 1);
  EXPECT_FALSE(ActReaddress::_removeDuplicatedRcpt(&msg));
  EXPECT_EQ(recipients(), (Recipients{"first@a.example"}));
}

// The removal as it is laid down, pair by pair.
std::string literallyWithoutDoubles(const Recipients& present) {
  std::vector<std::string> entries(present.begin(), present.end());
  for (std::size_t i = 0; i < entries.size(); ++i) {
    for (std::size_t j = i + 1; j < entries.size(); ++j) {
      if (!entries[i].empty() && !entries[j].empty() &&
          ActReaddress::_isSameEmailAddress(entries[i], entries[j])) {
        entries[j].clear();
      }
    }
  }
  std::string text;
  for (std::string entry : entries) {
    entry.erase(0, entry.find_first_not_of(' '));
    entry.erase(entry.find_last_not_of(' ') + 1);
    if (!entry.empty()) {
      text += entry + ";";
    }
  }
  return text;
}

TEST_F(ReaddressTest, DropsWhatThePairwiseStepsDrop) {
  const std::string kPieces[] = {"a", "A", "b", " ", " ", "\t", "@x", "\xC3\x84"};
  std::mt19937 random(35);  // NOLINT(cert-msc51-cpp): the same lists in each run
  for (int round = 0; round < 3000; ++round) {
    Recipients present;
    for (auto count = random() % 12; count > 0; --count) {
      std::string address;
      for (auto left = random() % 4; left > 0; --left) {
        address += kPieces[random() % std::size(kPieces)];
      }
      present.push_back(address);
    }
    recipients() = present;
    msg.facts().calls.clear();
    ASSERT_TRUE(ActReaddress::_removeDuplicatedRcpt(&msg));
    ASSERT_EQ(msg.facts().calls.back(), "setRcpt " + literallyWithoutDoubles(present) + " replace");
  }
}

TEST_F(ReaddressTest, DropsDoublesOfAMultitudeInLinearTime) {
  for (const int count : {10'000, 400'000}) {
    recipients().clear();
    for (int index = 0; index < count; ++index) {
      recipients().push_back("User" + std::to_string(index % (count / 2)) + "@a.example");
    }
    const Recipients firstHalf(recipients().begin(), std::next(recipients().begin(), count / 2));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(ActReaddress::_removeDuplicatedRcpt(&msg));
    // The pairwise way takes hours for the larger number.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(recipients(), firstHalf);
  }
}

TEST_F(ReaddressTest, AddsRecipientsInTheirNormalForm) {
  std::string text = "a@x ; b@x";
  EXPECT_TRUE(ActReaddress::_addRcpt(&msg, text, true));
  EXPECT_EQ(text, "a@x;b@x;");
  EXPECT_EQ(msg.facts().calls[0], "setRcpt a@x;b@x; append");
  EXPECT_EQ(recipients(), (Recipients{"first@a.example", "a@x", "b@x"}));
}

TEST_F(ReaddressTest, KeepsABareSeparatorForABlankPart) {
  std::string text = "a@x; ;b@x";
  EXPECT_TRUE(ActReaddress::_addRcpt(&msg, text, false));
  EXPECT_EQ(text, "a@x;;b@x;");
  EXPECT_EQ(msg.facts().calls[0], "setRcpt a@x;;b@x; replace");
}

TEST_F(ReaddressTest, LeavesTheMessageAloneWhenThereIsNobodyToAdd) {
  for (const char* nobody : {"", ";", ";;"}) {
    std::string text = nobody;
    EXPECT_TRUE(ActReaddress::_addRcpt(&msg, text, false));
    EXPECT_EQ(text, nobody);
  }
  EXPECT_TRUE(msg.facts().calls.empty());
}

TEST_F(ReaddressTest, StopsWhenTheRecipientsCannotBeSet) {
  msg.facts().refusedRecipient = "a@x";
  std::string text = "a@x";
  EXPECT_FALSE(ActReaddress::_addRcpt(&msg, text, false));
  EXPECT_EQ(msg.facts().calls, Texts{"setRcpt a@x; replace"});
}

TEST_F(ReaddressTest, SendsTheMessageToItsRecipientsInstead) {
  action.recipients = "r@x";
  EXPECT_TRUE(take(action));
  EXPECT_TRUE(flag);
  ASSERT_EQ(watching.calls().size(), 1u);
  EXPECT_EQ(watching.calls()[0].text, "resend 1");
  EXPECT_EQ(watching.calls()[0].msg, &msg);
  EXPECT_EQ(watching.errorOnEntry(), 0u);
  EXPECT_EQ(watching.recipients, Recipients{"r@x"});
  EXPECT_EQ(log.takeLines(), (LogLines{{3, "Readdress to: r@x;"}}));
}

TEST_F(ReaddressTest, NormalisesItsOwnRecipients) {
  action.recipients = "a@x ; b@x";
  EXPECT_TRUE(take(action));
  EXPECT_EQ(action.recipients, "a@x;b@x;");
  uiReaddress stored;
  ASSERT_TRUE(stored.construct(action.serialize().c_str(), 0));
  EXPECT_EQ(stored.getRcpt(), "a@x;b@x;");
}

TEST_F(ReaddressTest, MarksTheMessageForTheHandOverOnly) {
  msg.root()->addHeader(-1, "X-kavi-reprocess-rules", "12", nullptr);
  action.recipients = "r@x";
  EXPECT_TRUE(take(action));
  EXPECT_EQ(watching.fields,
            (Texts{"X-kavi-reprocess-rules:12 15", "X-kavi-reprocess-type:readdress"}));
  EXPECT_EQ(msg.fields(), (Texts{"X-kavi-reprocess-rules:12", "X-kavi-reprocess-type:readdress"}));
}

TEST_F(ReaddressTest, GoesOnWithAMessageThatHasNoRoot) {
  fakes::Message malformed(false);
  action.recipients = "r@x";
  EXPECT_TRUE(action.takeAction(&malformed, nullptr, flag, tokens, adapter, namedObjects));
  EXPECT_EQ(log.takeLines(),
            (LogLines{{3, "Cannot place reprocessing information into malformed message."},
                      {3, "Readdress to: r@x;"}}));
}

TEST_F(ReaddressTest, FailsWithoutATraceWhenThereIsNoMessage) {
  for (bool before : {false, true}) {
    flag = before;
    EXPECT_FALSE(action.takeAction(nullptr, nullptr, flag, tokens, adapter, namedObjects));
    EXPECT_EQ(flag, before);
  }
  EXPECT_TRUE(adapter.calls().empty());
  EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(ReaddressTest, FailsWhenTheRecipientsCannotBeSet) {
  msg.facts().refusedRecipient = "bad";
  action.recipients = "bad";
  EXPECT_FALSE(take(action));
  EXPECT_FALSE(flag);
  EXPECT_TRUE(watching.calls().empty());
  EXPECT_EQ(recipients(), (Recipients{"first@a.example"}));
  EXPECT_EQ(log.takeLines(),
            (LogLines{{1, "Failed to modify message session(rcpt) with 'bad;'."}}));
}

TEST_F(ReaddressTest, StaysReaddressedWhenTheResendFails) {
  msg.root()->addHeader(-1, "X-kavi-reprocess-rules", "12", nullptr);
  action.recipients = "r@x";
  watching.answer(10, -1);
  EXPECT_FALSE(take(action));
  EXPECT_FALSE(flag);
  EXPECT_EQ(recipients(), Recipients{"r@x"});
  EXPECT_EQ(msg.fields(), (Texts{"X-kavi-reprocess-rules:12", "X-kavi-reprocess-type:readdress"}));
  EXPECT_EQ(log.takeLines(),
            (LogLines{{1, "Failed to send out readdress-ed message via adapter, error 10."}}));
}

TEST_F(ReaddressTest, JudgesByTheReturnedValueAlone) {
  action.recipients = "r@x";
  watching.answer(10, 0);
  EXPECT_TRUE(take(action));
  watching.answer(0, 1);
  EXPECT_FALSE(take(action));
  EXPECT_EQ(log.takeLines(1),
            Texts{"Failed to send out readdress-ed message via adapter, error 0."});
}

TEST_F(ReaddressTest, RestoresTheMessageWhenTheAdapterThrows) {
  msg.root()->addHeader(-1, "X-kavi-reprocess-rules", "12", nullptr);
  action.recipients = "r@x";
  watching.throws = true;
  EXPECT_FALSE(take(action));
  EXPECT_FALSE(flag);
  EXPECT_EQ(msg.fields(), (Texts{"X-kavi-reprocess-rules:12", "X-kavi-reprocess-type:readdress"}));
  EXPECT_EQ(log.takeLines(), (LogLines{{1, "ActReaddress::takeAction failed: gone"}}));
}

class BccTest : public ReaddressTest {
 protected:
  BccTest() {
    bccC.recipients = "c@x";
    bccD.recipients = "d@x";
  }
  const std::string* pending() { return tokens.find(ScanToken::PendingBcc); }

  ActBcc bccC;
  ActBcc bccD;
};

TEST_F(BccTest, AddsItsRecipientsAndLeavesTheFlagAlone) {
  for (bool before : {false, true}) {
    flag = before;
    EXPECT_TRUE(bccC.takeAction(&msg, nullptr, flag, tokens, adapter, namedObjects));
    EXPECT_EQ(flag, before);
  }
  EXPECT_EQ(recipients(), (Recipients{"first@a.example", "c@x"}));
  EXPECT_TRUE(adapter.calls().empty());
  EXPECT_TRUE(msg.fields().empty()) << "no reprocessing headers";
  EXPECT_EQ(log.takeLines(), (LogLines{{3, "BCC to: c@x;"}, {3, "BCC to: c@x;"}}));
}

TEST_F(BccTest, RemembersTheRecipientsOfEveryAction) {
  EXPECT_TRUE(take(bccC));
  EXPECT_EQ(*pending(), "c@x;");
  EXPECT_TRUE(take(bccD));
  EXPECT_EQ(*pending(), "c@x;;d@x;");
}

TEST_F(BccTest, AppendsToAnEmptyMemory) {
  tokens.set(ScanToken::PendingBcc, "");
  EXPECT_TRUE(take(bccC));
  EXPECT_EQ(*pending(), ";c@x;");
}

TEST_F(BccTest, FailsWhenTheRecipientsCannotBeSet) {
  msg.facts().refusedRecipient = "c@x";
  EXPECT_FALSE(take(bccC));
  EXPECT_EQ(pending(), nullptr);
  EXPECT_EQ(log.takeLines(),
            (LogLines{{1, "Failed to modify message session(rcpt) with 'c@x;'."}}));
}

TEST_F(BccTest, SurvivesAReaddressActionThatFollows) {
  action.recipients = "r@x";
  EXPECT_TRUE(take(bccC));
  EXPECT_TRUE(take(bccD));
  EXPECT_EQ(*pending(), "c@x;;d@x;");
  log.takeLines();
  EXPECT_TRUE(take(action));
  EXPECT_EQ(recipients(), (Recipients{"r@x", "c@x", "d@x"}));
  EXPECT_EQ(watching.recipients, recipients());
  EXPECT_EQ(pending(), nullptr);
  EXPECT_EQ(log.takeLines(), (LogLines{{3, "Readdress to: r@x;"}, {3, "BCC to: c@x;d@x;"}}));
}

TEST_F(BccTest, ReaddressLeavesAnEmptyMemoryAlone) {
  tokens.set(ScanToken::PendingBcc, "");
  action.recipients = "r@x";
  EXPECT_TRUE(take(action));
  EXPECT_NE(pending(), nullptr);
  EXPECT_EQ(log.takeLines(), (LogLines{{3, "Readdress to: r@x;"}}));
}

TEST_F(BccTest, ReaddressFailsWhenTheBlindCopiesCannotBeAddedAgain) {
  action.recipients = "r@x";
  EXPECT_TRUE(take(bccC));
  msg.facts().refusedRecipient = "c@x";
  log.takeLines();
  EXPECT_FALSE(take(action));
  EXPECT_FALSE(flag);
  EXPECT_EQ(recipients(), Recipients{"r@x"}) << "the envelope stays changed";
  EXPECT_EQ(*pending(), "c@x;");
  EXPECT_TRUE(watching.calls().empty());
  EXPECT_EQ(log.takeLines(), (LogLines{{1, "Failed to modify message session(rcpt) with 'r@x;'."}}))
      << "with the action's own recipients";
}

}  // namespace
