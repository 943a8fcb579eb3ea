// What every class answers about itself.
#include <memory>

#include "library/actions/disposition/archive.h"
#include "library/actions/disposition/delete.h"
#include "library/actions/disposition/encryption.h"
#include "library/actions/disposition/handoff.h"
#include "library/actions/disposition/postpone.h"
#include "library/actions/disposition/quarantine.h"
#include "library/actions/disposition/readdress.h"
#include "library/actions/disposition/virus_clean.h"
#include "library/actions/modification/delete_attachment.h"
#include "library/actions/modification/stamp.h"
#include "library/actions/modification/tag_subject.h"
#include "library/actions/modification/x_header.h"
#include "library/notification/feedback.h"
#include "tests/unit/library/library_test.h"

namespace {

template <class Action>
std::unique_ptr<KaviAction> make() {
  return std::make_unique<Action>();
}

struct Row {
  const char* name;
  std::unique_ptr<KaviAction> (*make)();
  int type;
  bool requiresOriginal;
  bool hasNamedObjects;
  bool idsResult;  // of the character-array overload, for a settings string without ids
  bool isAction;   // false for a settings class, which is never run
};

const Row kTable[] = {
    {"ActDelete", make<ActDelete>, 1, false, false, true, true},
    {"ActReaddress", make<ActReaddress>, 3, false, false, true, true},
    {"ActDeleteAttachment", make<ActDeleteAttachment>, 4, false, false, true, true},
    {"ActVirusClean", make<ActVirusClean>, 5, false, false, true, true},
    {"ActTagSubject", make<ActTagSubject>, 7, false, false, true, true},
    {"ActBcc", make<ActBcc>, 9, false, false, true, true},
    {"ActHandoff", make<ActHandoff>, 11, false, false, true, true},
    {"ActPostpone", make<ActPostpone>, 12, false, false, true, true},
    {"ActPackwatch", make<ActPackwatch>, 16, false, false, true, true},
    {"ActInsertXHeaderTag", make<ActInsertXHeaderTag>, 18, false, false, true, true},
    {"ActIBEDecrypt", make<ActIBEDecrypt>, 20, false, false, true, true},
    {"ActIBEEncrypt", make<ActIBEEncrypt>, 21, false, false, true, true},
    {"ActIBEReEncrypt", make<ActIBEReEncrypt>, 22, false, false, true, true},
    {"uiDelete", make<uiDelete>, 1, false, false, true, false},
    {"uiReaddress", make<uiReaddress>, 3, false, false, true, false},
    {"uiDeleteAttachment", make<uiDeleteAttachment>, 4, false, false, true, false},
    {"uiVirusClean", make<uiVirusClean>, 5, false, false, true, false},
    {"uiTagSubject", make<uiTagSubject>, 7, false, false, false, false},
    {"uiBcc", make<uiBcc>, 9, false, false, true, false},
    {"uiHandoff", make<uiHandoff>, 11, false, false, true, false},
    {"uiPostpone", make<uiPostpone>, 12, false, false, true, false},
    {"uiPackwatch", make<uiPackwatch>, 16, false, false, true, false},
    {"uiInsertXHeaderTag", make<uiInsertXHeaderTag>, 18, false, false, false, false},
    {"uiIBEEncrypt", make<uiIBEEncrypt>, 21, false, false, true, false},
};

class ActionTableTest : public LibraryTest, public testing::WithParamInterface<const Row*> {
 protected:
  const Row& row = *GetParam();
  std::unique_ptr<KaviAction> action = row.make();
};

TEST_P(ActionTableTest, AnswersAsTabled) {
  EXPECT_EQ(action->getType(), row.type);
  EXPECT_EQ(action->requiresOriginalMsg(), row.requiresOriginal);
  EXPECT_EQ(action->hasNamedObjects(), row.hasNamedObjects);
}

TEST_P(ActionTableTest, LeavesTheIdListAsItIs) {
  Ids ids{4, 2};
  EXPECT_EQ(action->getNamedObjectIds("1-5", 3, ids), row.idsResult);
  EXPECT_EQ(action->getNamedObjectIds(nullptr, 0, ids), row.idsResult);
  EXPECT_EQ(action->getNamedObjectIds(std::string("1-5"), ids), row.idsResult);
  EXPECT_EQ(ids, (Ids{4, 2}));
}

TEST_P(ActionTableTest, FillsInNoTokens) {
  action->fillInTokenMap(tokens, namedObjects);
  EXPECT_TRUE(tokens.empty());
}

TEST_P(ActionTableTest, SettingsAreNeverRun) {
  if (row.isAction) {
    return;
  }
  fakes::Message msg;
  for (bool before : {false, true}) {
    bool flag = before;
    EXPECT_FALSE(take(*action, &msg, flag));
    EXPECT_EQ(flag, before);
  }
  EXPECT_TRUE(adapter.calls().empty());
  EXPECT_TRUE(msg.fields().empty());
  EXPECT_TRUE(tokens.empty());
}

std::vector<const Row*> rows() {
  std::vector<const Row*> rows;
  for (const Row& row : kTable) {
    rows.push_back(&row);
  }
  return rows;
}

INSTANTIATE_TEST_SUITE_P(Classes, ActionTableTest, testing::ValuesIn(rows()),
                         [](const auto& test) { return std::string(test.param->name); });

// The classes on named objects read ids, so that they are not among those above.
TEST(NamedObjectActionTest, AnswersAsTabled) {
  ActArchive archive;
  EXPECT_EQ(archive.getType(), 0);
  EXPECT_TRUE(archive.requiresOriginalMsg());
  EXPECT_TRUE(archive.hasNamedObjects());
  ActQuarantine quarantine;
  EXPECT_EQ(quarantine.getType(), 2);
  EXPECT_FALSE(quarantine.requiresOriginalMsg());
  EXPECT_TRUE(quarantine.hasNamedObjects());
  ActStamp stamp;
  EXPECT_EQ(stamp.getType(), 8);
  EXPECT_FALSE(stamp.requiresOriginalMsg());
  EXPECT_TRUE(stamp.hasNamedObjects());
  for (KaviAction* action : std::initializer_list<KaviAction*>{&archive, &quarantine, &stamp}) {
    Ids ids{4};
    EXPECT_TRUE(action->getNamedObjectIds("2-7-12", 6, ids));
    EXPECT_EQ(ids, (Ids{4, 7, 12}));
    EXPECT_EQ(action->serialize(), "0-0");
    EXPECT_TRUE(action->construct("2:7:12", 6));
    EXPECT_EQ(action->serialize(), "2-7-12");
  }
}

TEST_F(LibraryTest, ActionsOnNamedObjectsNameThemselvesInTheLog) {
  EXPECT_FALSE(ActArchive().construct("0-0", 3));
  EXPECT_FALSE(ActQuarantine().construct("", 0));
  EXPECT_FALSE(ActStamp().construct("1-x", 3));
  EXPECT_EQ(log.takeLines(),
            (fakes::LogLines{
                {1, "Failed to construct Action ArchiveName with setting: '0-0' (max 32 chars)"},
                {1, "Failed to construct Action QuarantineName with setting: '' (max 32 chars)"},
                {1, "Failed to construct Action StampName with setting: '1-x' (max 32 chars)"}}));
}

TEST(ActionTypeTest, CodesAreStoredAndNeverChange) {
  const struct {
    KaviAction::ActionType type;
    int code;
  } kCodes[] = {
      {KaviAction::Archive, 0},
      {KaviAction::Delete, 1},
      {KaviAction::Quarantine, 2},
      {KaviAction::Readdress, 3},
      {KaviAction::DeleteAttachment, 4},
      {KaviAction::VirusClean, 5},
      {KaviAction::TagSubject, 7},
      {KaviAction::Stamp, 8},
      {KaviAction::Bcc, 9},
      {KaviAction::Notify, 10},
      {KaviAction::Handoff, 11},
      {KaviAction::Postpone, 12},
      {KaviAction::Packwatch, 16},
      {KaviAction::InsertXHeaderTag, 18},
      {KaviAction::IBEDecrypt, 20},
      {KaviAction::IBEEncrypt, 21},
      {KaviAction::IBEReEncrypt, 22},
  };
  for (const auto& row : kCodes) {
    EXPECT_EQ(row.type, row.code);
  }
}

}  // namespace
