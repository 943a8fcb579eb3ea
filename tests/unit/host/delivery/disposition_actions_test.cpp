// The actions that take a message out of the stream, on the real message library and adapter.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/core/ini_settings.h"
#include "host/message/message.h"
#include "library/actions/disposition/archive.h"
#include "library/actions/disposition/quarantine.h"
#include "library/actions/disposition/readdress.h"
#include "library/namedobj/quarantine_area.h"
#include "library/platform/archive_area.h"
#include "library/platform/msgu.h"
#include "library/tokens/action_utils.h"
#include "tests/fakes/capturing_log.h"
#include "tests/unit/host/delivery/filing_bench.h"

namespace {

using host::delivery::AdapterError;
using host::delivery::DeliverySettings;
using host::delivery::LocalAdapter;
using host::delivery::SpoolEntry;
using host::message::Buffer;
using host::message::Message;
using Kavi::ScanToken;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;
using testing_host::contentOf;
using testing_host::FilingBench;

class DispositionActions : public ::testing::Test {
 protected:
  DispositionActions() {
    host::core::IniSettings settings;
    settings.override("general", "queue_quarantine", bench_.folder);
    settings.override("general", "queue_archive", bench_.folder);
    ActionUtils::init(settings, log_);
    ActQuarantine::init(settings, log_);
    ActArchive::init(settings, log_);
    ActionUtils::_build_token_string_table();
    log_.takeLines();
    area_.areaName = "virus";
    area_.agingDays = 30;
    area_.agingEnabled = true;
    objects_.set(7, &area_);
    objects_.set(8, &archive_);
    archive_.areaName = std::string(300, 'a');
    tokens_.set(ScanToken::RuleId, "15");
    settings_.scan.host = "192.0.2.1";
    load("");
  }
  ~DispositionActions() override {
    static fakes::CapturingLog nowhere(0);
    host::core::IniSettings none;
    ActionUtils::init(none, nowhere);
  }

  // A message with these fields beside its subject, as it comes in.
  void load(const std::string& fields) {
    message_ = Message::parse(Buffer::copyOf("Subject: x\r\n" + fields + "\r\nbody\r\n"));
    message_->setEnvelope({"s@example.org", {"first@example.com"}, {}});
    ASSERT_EQ(adapter_.beginMessage(*message_, message_->receivedBytes(), tokens_),
              AdapterError::None);
  }

  bool take(KaviAction& action) {
    return action.takeAction(message_.get(), &message_->received(), flag_, tokens_, adapter_,
                             objects_);
  }
  bool quarantine() {
    ActQuarantine action;
    EXPECT_TRUE(action.construct("1-7", 3));
    action.fillInTokenMap(tokens_, objects_);
    return take(action);
  }
  bool readdress(const char* recipients) {
    ActReaddress action;
    action.recipients = recipients;
    return take(action);
  }
  bool bcc(const char* recipients) {
    ActBcc action;
    action.recipients = recipients;
    return take(action);
  }
  const std::vector<std::string>& recipients() const { return message_->envelope().recipients; }
  std::string path() const { return tokens_.valueOrEmpty(ScanToken::QuarantinePath); }

  FilingBench bench_;
  fakes::CapturingLog log_{3};
  DeliverySettings settings_;
  uiQuarantineArea area_;
  ArchiveArea archive_;
  NamedObjMgrForScanner objects_;
  Kavi::TokenMap<ScanToken> tokens_;
  LocalAdapter adapter_{bench_.state, &settings_, &log_};
  std::unique_ptr<Message> message_;
  bool flag_ = false;
};

TEST_F(DispositionActions, QuarantineStoresTheRulesAndLeavesThemAsTheyWere) {
  const struct {
    const char* fields;
    const char* stored;
    const char* left;
  } kCases[] = {
      {"X-kavi-reprocess-rules: 12\r\n",
       "X-kavi-reprocess-rules: 12 15\r\nX-kavi-reprocess-type: quarantine\r\n",
       "X-kavi-reprocess-rules: 12\r\nX-kavi-reprocess-type: quarantine\r\n"},
      {"", "X-kavi-reprocess-rules: 15\r\nX-kavi-reprocess-type: quarantine\r\n",
       "X-kavi-reprocess-type: quarantine\r\n"},
      {"X-kavi-reprocess-rules:\r\n",
       "X-kavi-reprocess-rules: 15\r\nX-kavi-reprocess-type: quarantine\r\n",
       "X-kavi-reprocess-type: quarantine\r\n"},
  };
  for (const auto& tested : kCases) {
    SCOPED_TRACE(tested.fields);
    load(tested.fields);
    flag_ = false;
    ASSERT_TRUE(quarantine());
    EXPECT_TRUE(flag_);
    EXPECT_EQ(contentOf(path()), std::string("Subject: x\r\n") + tested.stored + "\r\nbody\r\n");
    EXPECT_EQ(message_->toString(), std::string("Subject: x\r\n") + tested.left + "\r\nbody\r\n");
  }
}

TEST_F(DispositionActions, QuarantineFilesWhereTheTokenSays) {
  tokens_.set(ScanToken::QuarantineArea, "virus");
  const std::string told = ActionUtils::getTokenValue(tokens_, "%QUARANTINE_PATH%", *message_);
  ASSERT_TRUE(quarantine());
  EXPECT_EQ(path(), told);
  const auto rows = bench_.rows();
  ASSERT_THAT(rows, SizeIs(1));
  EXPECT_EQ(rows[0].path, told);
  EXPECT_EQ(rows[0].area, "virus");
  EXPECT_EQ(rows[0].rule, "15");
  EXPECT_EQ(rows[0].agingDays, 30u);
}

TEST_F(DispositionActions, QuarantineThatFailsRestoresTheRules) {
  load("X-kavi-reprocess-rules: 12\r\n");
  std::filesystem::remove_all(bench_.folder);
  EXPECT_FALSE(quarantine());
  EXPECT_TRUE(flag_);
  EXPECT_EQ(message_->toString(),
            "Subject: x\r\nX-kavi-reprocess-rules: 12\r\nX-kavi-reprocess-type: quarantine\r\n"
            "\r\nbody\r\n");
  EXPECT_EQ(tokens_.find(ScanToken::QuarantinePath), nullptr);
  EXPECT_THAT(log_.takeLines(1),
              ElementsAre("Failed to quarantine the message. err=0x00000016(22d), path='" +
                          bench_.folder + "'"));
}

TEST_F(DispositionActions, QuarantineTakesAMessageWithoutRoot) {
  message_ = Message::parse(Buffer::copyOf(""));
  ASSERT_TRUE(quarantine());
  EXPECT_TRUE(std::filesystem::exists(path()));
  EXPECT_EQ(contentOf(path()), "");
}

TEST_F(DispositionActions, ArchiveKeepsTheWholeNameOfItsArea) {
  ActArchive action;
  ASSERT_TRUE(action.construct("1-8", 3));
  EXPECT_TRUE(take(action));
  EXPECT_FALSE(flag_);
  EXPECT_EQ(message_->changed(), false);
  const auto rows = bench_.rows();
  ASSERT_THAT(rows, SizeIs(1));
  EXPECT_EQ(rows[0].area, archive_.areaName);
  EXPECT_EQ(rows[0].agingDays, std::nullopt);
  EXPECT_EQ(contentOf(rows[0].path), message_->receivedBytes());
}

TEST_F(DispositionActions, RecipientsAreKeptOnceInTheirFirstSpelling) {
  message_->setEnvelope({"", {"A@x.test", "b@x.test", "C@x.test", "a@X.test"}, {}});
  ASSERT_TRUE(ActReaddress::_removeDuplicatedRcpt(message_.get()));
  EXPECT_THAT(recipients(), ElementsAre("A@x.test", "b@x.test", "C@x.test"));
}

TEST_F(DispositionActions, BlindCopiesSurviveAReaddress) {
  ASSERT_TRUE(bcc("c@x.test"));
  ASSERT_TRUE(bcc(" d@x.test ; C@x.test"));
  EXPECT_THAT(recipients(), ElementsAre("first@example.com", "c@x.test", "d@x.test"));
  EXPECT_EQ(tokens_.valueOrEmpty(ScanToken::PendingBcc), "c@x.test;;d@x.test;C@x.test;");
  EXPECT_FALSE(flag_);
  ASSERT_TRUE(readdress("r@x.test"));
  EXPECT_TRUE(flag_);
  EXPECT_EQ(tokens_.find(ScanToken::PendingBcc), nullptr);
  EXPECT_THAT(recipients(), ElementsAre("r@x.test", "c@x.test", "d@x.test"));
  std::vector<std::string> ids;
  ASSERT_EQ(bench_.state.spool().list(ids), AdapterError::None);
  ASSERT_THAT(ids, SizeIs(1));
  SpoolEntry entry;
  std::string bytes;
  ASSERT_EQ(bench_.state.spool().read(ids[0], entry, bytes), AdapterError::None);
  EXPECT_EQ(entry.envelope.recipients, recipients());
  EXPECT_THAT(bytes,
              HasSubstr("X-kavi-reprocess-rules: 15\r\nX-kavi-reprocess-type: readdress\r\n"));
}

TEST_F(DispositionActions, BlindCopiesGoBesideEveryRecipientThatSmtpAllows) {
  message_->setEnvelope({"", {"\"a;b\"@x.test", "\"c d\"@x.test"}, {}});
  ASSERT_TRUE(bcc("e@x.test"));
  EXPECT_THAT(recipients(), ElementsAre("\"a;b\"@x.test", "\"c d\"@x.test", "e@x.test"));
}

TEST_F(DispositionActions, ReaddressThatFailsStaysReaddressed) {
  load("X-kavi-reprocess-rules: 12\r\n");
  settings_.scan.host.clear();
  EXPECT_FALSE(readdress("r@x.test"));
  EXPECT_FALSE(flag_);
  EXPECT_THAT(recipients(), ElementsAre("r@x.test"));
  EXPECT_THAT(message_->toString(), HasSubstr("X-kavi-reprocess-rules: 12\r\n"));
  EXPECT_THAT(log_.takeLines(1),
              ElementsAre(HasSubstr("was not sent"),
                          "Failed to send out readdress-ed message via adapter, error 43."));
}

// Nobody would get the message, so it must not count as sent.
TEST_F(DispositionActions, ReaddressToNobodyFails) {
  EXPECT_FALSE(readdress(" ; "));
  EXPECT_FALSE(flag_);
  EXPECT_THAT(log_.takeLines(1), SizeIs(2));
}

}  // namespace
