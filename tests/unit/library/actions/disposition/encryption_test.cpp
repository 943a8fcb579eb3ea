#include "library/actions/disposition/encryption.h"

#include "tests/unit/library/library_test.h"

namespace {

using fakes::LogLines;

constexpr char kSetting[] = "Todo::check with Quillon";

class EncryptionTest : public LibraryTest {
 protected:
  fakes::Message msg;
  fakes::Settings settings;
};

template <class Action>
class EncryptingTest : public EncryptionTest {};

using EncryptingClasses = testing::Types<ActIBEEncrypt, ActIBEReEncrypt>;
TYPED_TEST_SUITE(EncryptingTest, EncryptingClasses);

TYPED_TEST(EncryptingTest, HaveOneFixedSetting) {
  TypeParam action;
  EXPECT_EQ(action.serialize(), kSetting);
  for (const char* setting :
       {static_cast<const char*>(kSetting), "", "anything", static_cast<const char*>(nullptr)}) {
    EXPECT_TRUE(action.construct(setting, 24));
    EXPECT_EQ(action.serialize(), kSetting);
  }
}

TYPED_TEST(EncryptingTest, SucceedAndTouchNothing) {
  TypeParam action;
  for (bool before : {false, true}) {
    bool flag = before;
    EXPECT_TRUE(this->take(action, &this->msg, flag));
    EXPECT_TRUE(this->take(action, nullptr, flag));
    EXPECT_EQ(flag, before);
  }
  EXPECT_TRUE(this->msg.fields().empty());
  EXPECT_TRUE(this->tokens.empty());
  EXPECT_TRUE(this->adapter.calls().empty());
  EXPECT_TRUE(this->log.takeLines().empty());
}

TYPED_TEST(EncryptingTest, ReadNothingAtTheStart) {
  EXPECT_TRUE(TypeParam::init(this->settings, this->log));
  EXPECT_TRUE(this->settings.lookups().empty());
  EXPECT_TRUE(this->log.takeLines().empty());
}

TEST_F(EncryptionTest, TheSettingsClassHoldsTheSameSetting) {
  uiIBEEncrypt setting;
  EXPECT_EQ(setting.serialize(), kSetting);
  for (const char* text :
       {static_cast<const char*>(kSetting), "", static_cast<const char*>(nullptr)}) {
    EXPECT_TRUE(setting.construct(text, 24));
  }
  EXPECT_EQ(setting.serialize(), kSetting);
}

TEST_F(EncryptionTest, BuildingADecryptActionIsLoggedAndSucceeds) {
  ActIBEDecrypt action;
  EXPECT_TRUE(action.construct("anything", 8));
  EXPECT_TRUE(action.construct(nullptr, 0));
  EXPECT_EQ(log.takeLines(),
            (LogLines{{1, "ERROR: Should't enter function ActIBEDecrypt::construct"},
                      {1, "ERROR: Should't enter function ActIBEDecrypt::construct"}}));
  EXPECT_EQ(action.serialize(), "");
  EXPECT_EQ(log.takeLines(),
            (LogLines{{1, "ERROR: Should't enter function ActIBEDecrypt::serialize"}}));
  EXPECT_TRUE(ActIBEDecrypt::init(settings, log));
  EXPECT_EQ(log.takeLines(), (LogLines{{1, "ERROR: Should't enter function ActIBEDecrypt::init"}}));
}

TEST_F(EncryptionTest, DecryptClearsTheFlagAndNeedsAMessage) {
  ActIBEDecrypt action;
  bool flag = true;
  EXPECT_TRUE(take(action, &msg, flag));
  EXPECT_FALSE(flag);
  flag = true;
  EXPECT_FALSE(take(action, nullptr, flag));
  EXPECT_FALSE(flag);
  EXPECT_TRUE(log.takeLines().empty());
  EXPECT_TRUE(msg.fields().empty());
  EXPECT_TRUE(adapter.calls().empty());
}

}  // namespace
