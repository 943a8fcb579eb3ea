#include "library/actions/disposition/delete.h"

#include "tests/unit/library/library_test.h"

namespace {

using fakes::LogLines;

class DeleteTest : public LibraryTest {
 protected:
  ActDelete action;
  fakes::Message msg;
};

TEST_F(DeleteTest, SetsTheFlagOnceTheAdapterDeletedTheMessage) {
  bool flag = false;
  EXPECT_TRUE(take(action, &msg, flag));
  EXPECT_TRUE(flag);
  ASSERT_EQ(adapter.calls().size(), 1u);
  EXPECT_EQ(adapter.calls()[0].text, "delete");
  EXPECT_EQ(adapter.calls()[0].msg, &msg);
  EXPECT_EQ(adapter.errorOnEntry(), 0u);
}

TEST_F(DeleteTest, LeavesTheFlagAloneWhenTheAdapterFails) {
  adapter.answer(5, -1);
  for (bool before : {false, true}) {
    bool flag = before;
    EXPECT_FALSE(take(action, &msg, flag));
    EXPECT_EQ(flag, before);
    EXPECT_EQ(log.takeLines(), (LogLines{{1, "Failed to delete a message, error 5."}}));
  }
}

TEST_F(DeleteTest, PrintsTheErrorUnsigned) {
  adapter.answer(4294967295u, -1);
  bool flag = false;
  EXPECT_FALSE(take(action, &msg, flag));
  EXPECT_EQ(log.takeLines(), (LogLines{{1, "Failed to delete a message, error 4294967295."}}));
}

TEST_F(DeleteTest, JudgesByTheErrorCodeAlone) {
  adapter.answer(0, -1);
  bool flag = false;
  EXPECT_TRUE(take(action, &msg, flag));
  EXPECT_TRUE(flag);

  adapter.answer(3, 0);
  flag = false;
  EXPECT_FALSE(take(action, &msg, flag));
  EXPECT_FALSE(flag);
  EXPECT_EQ(log.takeLines(), (LogLines{{1, "Failed to delete a message, error 3."}}));
}

TEST_F(DeleteTest, HasNoSettings) {
  uiDelete settings;
  for (KaviAction* object :
       {static_cast<KaviAction*>(&action), static_cast<KaviAction*>(&settings)}) {
    EXPECT_TRUE(object->construct(nullptr, 0));
    EXPECT_TRUE(object->construct(nullptr, 9));
    EXPECT_TRUE(object->construct("", 0));
    EXPECT_TRUE(object->construct("anything %s", 11));
    EXPECT_EQ(object->serialize(), "");
  }
}

}  // namespace
