#include "library/actions/disposition/virus_clean.h"

#include "tests/unit/library/library_test.h"

namespace {

class VirusCleanTest : public LibraryTest {};

TEST_F(VirusCleanTest, SucceedsAndTouchesNothing) {
  ActVirusClean action;
  fakes::Message msg;
  msg.root()->addHeader(-1, "Subject", "s", nullptr);
  tokens.set(Kavi::ScanToken::Subject, "s");
  for (bool before : {false, true}) {
    bool flag = before;
    EXPECT_TRUE(take(action, &msg, flag));
    EXPECT_EQ(flag, before);
  }
  bool flag = false;
  EXPECT_TRUE(take(action, nullptr, flag));
  EXPECT_TRUE(adapter.calls().empty());
  EXPECT_EQ(msg.fields(), Texts{"Subject:s"});
  EXPECT_EQ(tokens.valueOrEmpty(Kavi::ScanToken::Subject), "s");
  EXPECT_EQ(std::distance(tokens.begin(), tokens.end()), 1);
}

TEST_F(VirusCleanTest, HasNoSettings) {
  ActVirusClean action;
  uiVirusClean settings;
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
