#include "library/actions/disposition/quarantine.h"

#include "library/namedobj/quarantine_area.h"
#include "tests/fakes/fault_plan.h"
#include "tests/unit/library/actions/disposition/watching_adapter.h"
#include "tests/unit/library/library_test.h"

namespace {

using fakes::LogLines;
using Kavi::ScanToken;

/// A record that only has a type.
class Stranger : public KaviNamedObj {
 public:
  explicit Stranger(unsigned int type) : type_(type) {}
  bool construct(const char* /*setting*/, unsigned int /*length*/) override { return true; }
  std::string serialize() override { return {}; }
  unsigned int getType() const override {
    ++asked;
    return type_;
  }
  mutable int asked = 0;

 private:
  unsigned int type_;
};

class QuarantineTest : public LibraryTest {
 protected:
  QuarantineTest() {
    setFolder("/var/q");
    EXPECT_TRUE(action.construct("2-7-9", 5));
    area7.areaName = "virus";
    area9.areaName = "spam";
    namedObjects.set(7, &area7);
    namedObjects.set(9, &area9);
    tokens.set(ScanToken::RuleId, "15");
  }
  void setFolder(const std::string& folder) {
    fakes::Settings settings;
    settings.set("general", "queue_quarantine", folder);
    EXPECT_TRUE(ActQuarantine::init(settings, log));
  }
  bool take() {
    flag = false;
    return action.takeAction(&msg, nullptr, flag, tokens, watching, namedObjects);
  }
  void hold(const char* rules) {
    msg.root()->addHeader(-1, "X-kavi-reprocess-rules", rules, nullptr);
  }
  std::string path() const { return tokens.valueOrEmpty(ScanToken::QuarantinePath); }

  ActQuarantine action;
  uiQuarantineArea area7;
  uiQuarantineArea area9;
  fakes::Message msg;
  WatchingAdapter watching{msg};
  bool flag = false;
};

TEST_F(QuarantineTest, FilesTheMessageAndKeepsItsPath) {
  EXPECT_TRUE(take());
  EXPECT_TRUE(flag);
  ASSERT_EQ(watching.calls().size(), 1u);
  EXPECT_EQ(watching.calls()[0].text, "quarantine '' /var/q");
  EXPECT_EQ(watching.calls()[0].msg, &msg);
  EXPECT_EQ(watching.errorOnEntry(), 0u);
  EXPECT_TRUE(watching.zeroed);
  EXPECT_EQ(path(), "/var/q/stored");
  EXPECT_EQ(log.takeLines(), (LogLines{{2, "Aging of the quarantined message is off."}}));
}

TEST_F(QuarantineTest, OverwritesAnEarlierPath) {
  tokens.set(ScanToken::QuarantinePath, "before");
  EXPECT_TRUE(take());
  EXPECT_EQ(path(), "/var/q/stored");
}

TEST_F(QuarantineTest, UsesItsFirstAreaOnly) {
  area7.agingEnabled = true;
  area7.agingDays = 30;
  namedObjects.set(9, nullptr);
  EXPECT_TRUE(take());
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::QuarantineAgingDays), "30");
  action.fillInTokenMap(tokens, namedObjects);
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::QuarantineArea), "virus");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::QuarantineAreaId), "7");
}

TEST_F(QuarantineTest, HandsTheAgingDaysOn) {
  area7.agingEnabled = true;
  area7.agingDays = 30;
  EXPECT_TRUE(take());
  EXPECT_EQ(log.takeLines(), (LogLines{{3, "Aging of the quarantined message is 30 day(s)."}}));
  area7.agingDays = 4294967295u;
  EXPECT_TRUE(take());
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::QuarantineAgingDays), "4294967295");
  EXPECT_EQ(log.takeLines(),
            (LogLines{{3, "Aging of the quarantined message is 4294967295 day(s)."}}));
  area7.agingEnabled = false;
  EXPECT_TRUE(take());
  const std::string* days = tokens.find(ScanToken::QuarantineAgingDays);
  ASSERT_NE(days, nullptr);
  EXPECT_EQ(*days, "");
  EXPECT_EQ(log.takeLines(), (LogLines{{2, "Aging of the quarantined message is off."}}));
}

TEST_F(QuarantineTest, MarksTheCopyWithTheRuleAndTakesTheMarkOff) {
  hold("12");
  EXPECT_TRUE(take());
  EXPECT_EQ(watching.fields,
            (Texts{"X-kavi-reprocess-rules:12 15", "X-kavi-reprocess-type:quarantine"}));
  EXPECT_EQ(msg.fields(), (Texts{"X-kavi-reprocess-rules:12", "X-kavi-reprocess-type:quarantine"}));
}

TEST_F(QuarantineTest, LeavesNoRulesInAMessageThatHadNone) {
  EXPECT_TRUE(take());
  EXPECT_EQ(watching.fields,
            (Texts{"X-kavi-reprocess-rules:15", "X-kavi-reprocess-type:quarantine"}));
  EXPECT_EQ(msg.fields(), Texts{"X-kavi-reprocess-type:quarantine"});
}

TEST_F(QuarantineTest, RemovesAnEmptyRulesHeader) {
  hold("");
  EXPECT_TRUE(take());
  EXPECT_EQ(msg.fields(), Texts{"X-kavi-reprocess-type:quarantine"});
}

TEST_F(QuarantineTest, GoesOnWithoutARule) {
  tokens.erase(ScanToken::RuleId);
  EXPECT_TRUE(take());
  EXPECT_EQ(watching.fields, Texts{});
  EXPECT_EQ(log.takeLines(), (LogLines{{2, "Aging of the quarantined message is off."},
                                       {3, "Missing rule id for message reprocessing."}}));
}

TEST_F(QuarantineTest, GoesOnWithAMessageThatHasNoRoot) {
  fakes::Message malformed(false);
  EXPECT_TRUE(action.takeAction(&malformed, nullptr, flag, tokens, adapter, namedObjects));
  EXPECT_EQ(adapter.calls().size(), 1u);
  EXPECT_EQ(log.takeLines(),
            (LogLines{{2, "Aging of the quarantined message is off."},
                      {3, "Cannot place reprocessing information into malformed message."}}));
}

TEST_F(QuarantineTest, RestoresTheMessageWhenTheAdapterFails) {
  hold("12");
  watching.answer(10, -1);
  EXPECT_FALSE(take());
  EXPECT_TRUE(flag);
  EXPECT_EQ(msg.fields(), (Texts{"X-kavi-reprocess-rules:12", "X-kavi-reprocess-type:quarantine"}));
  EXPECT_EQ(tokens.find(ScanToken::QuarantinePath), nullptr);
  EXPECT_EQ(log.takeLines(1),
            Texts{"Failed to quarantine the message. err=0x0000000A(10d), path='/var/q'"});
}

TEST_F(QuarantineTest, JudgesByTheReturnedValueAlone) {
  watching.answer(10, 0);
  EXPECT_TRUE(take());
  watching.answer(0, 1);
  EXPECT_FALSE(take());
  EXPECT_EQ(log.takeLines(1),
            Texts{"Failed to quarantine the message. err=0x00000000(0d), path='/var/q'"});
}

TEST_F(QuarantineTest, RestoresTheMessageWhenTheAdapterThrows) {
  hold("12");
  watching.throws = true;
  EXPECT_FALSE(take());
  EXPECT_TRUE(flag);
  EXPECT_EQ(msg.fields(), (Texts{"X-kavi-reprocess-rules:12", "X-kavi-reprocess-type:quarantine"}));
  EXPECT_EQ(log.takeLines(1), Texts{"ActQuarantine::takeAction failed: gone"});
}

TEST_F(QuarantineTest, FailsWithoutATraceWhenItHasNoIds) {
  ActQuarantine bare;
  EXPECT_FALSE(bare.takeAction(&msg, nullptr, flag, tokens, adapter, namedObjects));
  EXPECT_TRUE(flag);
  EXPECT_TRUE(log.takeLines().empty());
  EXPECT_TRUE(adapter.calls().empty());
}

TEST_F(QuarantineTest, RefusesAnIdWithoutARecord) {
  namedObjects.set(7, nullptr);
  EXPECT_FALSE(take());
  EXPECT_TRUE(flag);
  NamedObjMgrForScanner none;
  EXPECT_FALSE(action.takeAction(&msg, nullptr, flag, tokens, adapter, none));
  EXPECT_EQ(log.takeLines(), (LogLines{{1, "Invalid name object type reference. id=7"},
                                       {1, "Invalid name object type reference. id=7"}}));
  EXPECT_TRUE(watching.calls().empty());
  EXPECT_TRUE(adapter.calls().empty());
  EXPECT_EQ(tokens.find(ScanToken::QuarantineAgingDays), nullptr);
}

TEST_F(QuarantineTest, RefusesARecordOfAnotherType) {
  Stranger archive(4);
  namedObjects.set(7, &archive);
  EXPECT_FALSE(take());
  EXPECT_TRUE(flag);
  EXPECT_EQ(archive.asked, 2) << "once to check, once for the log";
  EXPECT_EQ(log.takeLines(), (LogLines{{1, "Incorrect name object type reference. type=4"}}));
  EXPECT_TRUE(watching.calls().empty());
}

TEST_F(QuarantineTest, FillsInTheAreasIdAndName) {
  tokens.set(ScanToken::QuarantineArea, "before");
  action.fillInTokenMap(tokens, namedObjects);
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::QuarantineAreaId), "7");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::QuarantineArea), "virus");
  EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(QuarantineTest, FillsInTheIdAloneWhenThereIsNoArea) {
  Stranger impostor(3);  // says that it is an area, and is none
  for (KaviNamedObj* record :
       {static_cast<KaviNamedObj*>(nullptr), static_cast<KaviNamedObj*>(&impostor)}) {
    namedObjects.set(7, record);
    tokens.clear();
    action.fillInTokenMap(tokens, namedObjects);
    EXPECT_EQ(tokens.valueOrEmpty(ScanToken::QuarantineAreaId), "7");
    EXPECT_EQ(tokens.find(ScanToken::QuarantineArea), nullptr);
    EXPECT_EQ(log.takeLines(), (LogLines{{1, "Invalid name object type reference. id=7"}}));
  }
}

TEST_F(QuarantineTest, FillsInNothingWithoutIds) {
  tokens.clear();
  ActQuarantine().fillInTokenMap(tokens, namedObjects);
  EXPECT_TRUE(tokens.empty());
  EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(QuarantineTest, InitAnswersWhetherTheFolderIsSet) {
  setFolder("");
  fakes::Settings none;
  EXPECT_FALSE(ActQuarantine::init(none, log));
  EXPECT_EQ(none.lookups(), Texts{"getString general/queue_quarantine"});
  EXPECT_TRUE(take());
  EXPECT_EQ(watching.calls()[0].text, "quarantine '' ") << "the folder stays empty";
  log.takeLines();
  EXPECT_FALSE(ActQuarantine::init(none, log));
  EXPECT_TRUE(log.takeLines().empty());
}

struct PathCase {
  const char* what;
  std::string folder;
  std::string id;
  std::string path;
};

const std::string kId36(36, 'x');

const PathCase kPaths[] = {
    {"two levels", "/var/q", "abc123", "/var/q/a/b/abc123.DF"},
    {"two characters", "/var/q", "ab", "/var/q/a/b/ab.DF"},
    {"one character: one level", "/var/q", "a", "/var/q/a/a.DF"},
    {"no character: no level", "/var/q", "", "/var/q/.DF"},
    {"36 characters", "/var/q", kId36, "/var/q/x/x/" + kId36 + ".DF"},
    {"of more, 36 count", "/var/q", kId36 + "yz", "/var/q/x/x/" + kId36 + ".DF"},
    {"no folder", "", "abc123", "/a/b/abc123.DF"},
    {"just fits", std::string(505, 'f'), "abc123", std::string(505, 'f') + "/a/b/abc123.DF"},
    {"cut to 519 bytes", std::string(506, 'f'), "abc123", std::string(506, 'f') + "/a/b/abc123.D"},
    {"cut in the folder", std::string(600, 'f'), "abc123", std::string(519, 'f')},
};

TEST_F(QuarantineTest, MakesThePathFromTheId) {
  for (const PathCase& test : kPaths) {
    SCOPED_TRACE(test.what);
    setFolder(test.folder);
    msg.setId(test.id);
    std::string result = "before";
    EXPECT_TRUE(ActQuarantine::_genQuarantinePath(result, &msg));
    EXPECT_EQ(result, test.path);
  }
}

TEST_F(QuarantineTest, LeavesThePathAloneWithoutAMessage) {
  std::string result = "before";
  EXPECT_FALSE(ActQuarantine::_genQuarantinePath(result, nullptr));
  EXPECT_EQ(result, "before");
}

}  // namespace
