#include "library/actions/disposition/archive.h"

#include "library/namedobj/quarantine_area.h"
#include "library/platform/archive_area.h"
#include "tests/unit/library/library_test.h"

namespace {

using fakes::LogLines;
using Kavi::ScanToken;

class ArchiveTest : public LibraryTest {
 protected:
  ArchiveTest() {
    setFolder("/var/a");
    EXPECT_TRUE(action.construct("2-7-9", 5));
    area.areaName = "kept";
    area.agingDays = 30;
    area.agingEnabled = true;
    namedObjects.set(7, &area);
  }
  void setFolder(const std::string& folder) {
    fakes::Settings settings;
    settings.set("general", "queue_archive", folder);
    EXPECT_TRUE(ActArchive::init(settings, log));
  }
  /// Runs the action with the flag either way; it must leave it alone.
  bool take() {
    bool flag = false;
    const bool result = LibraryTest::take(action, &msg, flag);
    EXPECT_FALSE(flag);
    const LogLines lines = log.takeLines();
    flag = true;
    EXPECT_EQ(LibraryTest::take(action, &msg, flag), result);
    EXPECT_TRUE(flag);
    EXPECT_EQ(log.takeLines(), lines);
    lines_ = lines;
    return result;
  }
  const std::string& value(ScanToken token) const {
    EXPECT_NE(tokens.find(token), nullptr);
    return tokens.valueOrEmpty(token);
  }

  ActArchive action;
  ArchiveArea area;
  fakes::Message msg;
  LogLines lines_;
};

TEST_F(ArchiveTest, FilesACopyInTheArea) {
  EXPECT_TRUE(take());
  ASSERT_EQ(adapter.calls().size(), 2u);
  EXPECT_EQ(adapter.calls()[0].text, "archive '' /var/a kept");
  EXPECT_EQ(adapter.calls()[0].msg, &msg);
  EXPECT_EQ(adapter.errorOnEntry(), 0u);
  EXPECT_TRUE(lines_.empty());
  EXPECT_TRUE(msg.fields().empty()) << "no reprocessing headers";
}

TEST_F(ArchiveTest, SetsIdNameAndAging) {
  tokens.set(ScanToken::ArchiveAreaId, "before");
  EXPECT_TRUE(take());
  EXPECT_EQ(value(ScanToken::ArchiveAreaId), "7");
  EXPECT_EQ(value(ScanToken::ArchiveAreaName), "kept");
  EXPECT_EQ(value(ScanToken::ArchiveAgingDays), "30");
  area.agingEnabled = false;
  EXPECT_TRUE(take());
  EXPECT_EQ(value(ScanToken::ArchiveAgingDays), "");
  EXPECT_TRUE(lines_.empty()) << "nothing is logged about aging";
}

TEST_F(ArchiveTest, HandsOver255CharactersOfTheNameAndKeepsAll) {
  area.areaName = std::string(250, 'n') + "123456" + std::string(44, 'm');
  EXPECT_TRUE(take());
  EXPECT_EQ(adapter.calls()[0].text, "archive '' /var/a " + std::string(250, 'n') + "12345");
  EXPECT_EQ(value(ScanToken::ArchiveAreaName), area.areaName);
  EXPECT_EQ(area.areaName.size(), 300u);
}

TEST_F(ArchiveTest, LeavesTheFlagAloneWhenTheAdapterFails) {
  adapter.answer(10, -1);
  EXPECT_FALSE(take());
  EXPECT_EQ(lines_, (LogLines{{1,
                               "Failed to archive the message. err=0x0000000A(10d), "
                               "path='/var/a'"}}));
  EXPECT_EQ(value(ScanToken::ArchiveAreaId), "7") << "the tokens are set before";
}

TEST_F(ArchiveTest, JudgesByTheReturnedValueAlone) {
  adapter.answer(10, 0);
  EXPECT_TRUE(take());
  adapter.answer(0, 1);
  EXPECT_FALSE(take());
  EXPECT_EQ(lines_, (LogLines{{1,
                               "Failed to archive the message. err=0x00000000(0d), "
                               "path='/var/a'"}}));
}

TEST_F(ArchiveTest, RefusesAQuarantineArea) {
  uiQuarantineArea quarantine;
  namedObjects.set(7, &quarantine);
  EXPECT_FALSE(take());
  EXPECT_EQ(lines_, (LogLines{{1, "Incorrect name object type reference. type=3"}}));
  EXPECT_TRUE(adapter.calls().empty());
  EXPECT_TRUE(tokens.empty());
}

TEST_F(ArchiveTest, RefusesAnIdWithoutARecord) {
  namedObjects.set(7, nullptr);
  EXPECT_FALSE(take());
  EXPECT_EQ(lines_, (LogLines{{1, "Invalid name object type reference. id=7"}}));
  namedObjects = {};
  EXPECT_FALSE(take());
  EXPECT_EQ(lines_, (LogLines{{1, "Invalid name object type reference. id=7"}}));
  EXPECT_TRUE(adapter.calls().empty());
}

TEST_F(ArchiveTest, FailsWithoutATraceWhenItHasNoIds) {
  action = ActArchive();
  EXPECT_FALSE(take());
  EXPECT_TRUE(lines_.empty());
  EXPECT_TRUE(adapter.calls().empty());
}

TEST_F(ArchiveTest, FillsInNoTokens) {
  action.fillInTokenMap(tokens, namedObjects);
  EXPECT_TRUE(tokens.empty());
}

TEST_F(ArchiveTest, InitAnswersWhetherTheFolderIsSet) {
  setFolder("");
  fakes::Settings none;
  EXPECT_FALSE(ActArchive::init(none, log));
  EXPECT_EQ(none.lookups(), Texts{"getString general/queue_archive"});
  EXPECT_TRUE(log.takeLines().empty());
  EXPECT_TRUE(take());
  EXPECT_EQ(adapter.calls()[0].text, "archive ''  kept") << "the folder stays empty";
}

}  // namespace
