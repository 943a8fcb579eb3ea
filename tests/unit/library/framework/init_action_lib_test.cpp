#include "library/framework/init_action_lib.h"

#include "library/actions/disposition/delete.h"
#include "library/actions/disposition/encryption.h"
#include "library/actions/disposition/postpone.h"
#include "library/actions/disposition/readdress.h"
#include "library/actions/disposition/virus_clean.h"
#include "library/actions/modification/delete_attachment.h"
#include "library/actions/modification/x_header.h"
#include "tests/unit/library/library_test.h"

namespace {

class InitActionLibTest : public LibraryTest {
 protected:
  fakes::Settings settings;
};

TEST_F(InitActionLibTest, StartsTheLibrarySettings) {
  settings.set("General-Notification", "PreferredCharset", "utf-8");
  EXPECT_EQ(InitActionLib(settings, log), 1);
  EXPECT_STREQ(ActionUtils::getDefaultDstCharset(), "utf-8");
  const auto lines = log.takeLines();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.front(),
            (fakes::LogLine{2, "Default destination (preferred) charset is utf-8."}));
}

// The order of the calls, seen from outside: the library's own settings first, then those of each
// class that has any.
TEST_F(InitActionLibTest, StartsTheClassesInTheirFixedOrder) {
  EXPECT_EQ(InitActionLib(settings, log), 1);
  EXPECT_EQ(settings.lookups(), (Texts{"getString General-Notification/PreferredCharset",
                                       "getString MessageModule/DefaultSourceCharset",
                                       "getInt MessageModule/UseMailCharsetAsDestinationCharset",
                                       "getInt MessageModule/UseUTF8AsPreferCharsetForStamp",
                                       "getString general/locale",
                                       "getString general/queue_archive",
                                       "getString general/queue_quarantine",
                                       "getInt MessageModule/TagDirectly",
                                       "getInt MessageModule/TagNotEncoding",
                                       "getInt MessageModule/IgnoreInsertError",
                                       "getInt MessageModule/DisclaimerLineLimit",
                                       "getInt general/NumOfBlankLineBeforeStampMessage",
                                       "getInt MessageModule/InsertStampAsAttachment",
                                       "getInt MessageModule/PreferCharsetAsUTF8",
                                       "getInt MessageModule/IgnoreSnmpError",
                                       "getString General-Notification/SNMPServer",
                                       "getString General-Notification/Community",
                                       "getString General-Notification/SNMPVersion",
                                       "getString General-Notification/MailFrom",
                                       "getInt General-Notification/NotificationSkipScan",
                                       "getInt General-Notification/NotificationHideRecipients",
                                       "getInt General-Notification/NotificationGetSenderFromMIME",
                                       "getInt kavi_manager/scanner_id",
                                       "getInt General-Notification/AddMsgIdInPolicyNotify",
                                       "getInt MessageModule/RemoveKaviMsgID",
                                       "getString general/queue_notify"}));
}

TEST_F(InitActionLibTest, LogsToTheLogOfTheLastStart) {
  fakes::CapturingLog other(3);
  EXPECT_EQ(InitActionLib(settings, other), 1);
  other.takeLines();
  ActionUtils::L2("after");
  EXPECT_EQ(other.takeLines(), (fakes::LogLines{{2, "after"}}));
  EXPECT_EQ(log.takeLines(), fakes::LogLines{});
  InitActionLib(settings, log);
}

TEST_F(InitActionLibTest, AnswersOneEvenWhenEveryLookupFails) {
  class Broken : public Kavi::GlobalSetting {
   public:
    int getString(const char* /*key*/, std::string& /*value*/, const char* /*section*/,
                  int /*flags*/) override {
      throw std::bad_alloc();
    }
    int getInt(const char* /*key*/, int& /*value*/, const char* /*section*/,
               int /*flags*/) override {
      throw std::bad_alloc();
    }
  };
  Broken broken;
  EXPECT_EQ(InitActionLib(broken, log), 1);
  // Each lookup that threw is reported; the start goes on behind it.
  EXPECT_GT(log.takeLines(1).size(), 5u);
  EXPECT_STREQ(ActionUtils::getLocalCharset(), "us-ascii");
}

TEST_F(InitActionLibTest, ClassesWithoutSettingsReadNothing) {
  for (auto* init :
       {&ActDelete::init, &ActVirusClean::init, &ActPostpone::init, &ActInsertXHeaderTag::init,
        &ActReaddress::init, &ActBcc::init, &ActIBEEncrypt::init, &ActDeleteAttachment::init}) {
    EXPECT_TRUE(init(settings, log));
  }
  EXPECT_TRUE(settings.lookups().empty());
  EXPECT_TRUE(log.takeLines().empty());
}

}  // namespace
