// The state of a freshly loaded library: this program never calls ActionUtils::init.
#include <gtest/gtest.h>

#include "library/framework/kavi_action_n.h"
#include "library/tokens/action_utils.h"

TEST(ActionUtilsBeforeInit, HoldsTheInitialValues) {
  EXPECT_STREQ(ActionUtils::getDefaultDstCharset(), "us-ascii");
  EXPECT_STREQ(ActionUtils::getLocalCharset(), "us-ascii");
  EXPECT_FALSE(ActionUtils::getUseMailCharsetFlag());
  EXPECT_FALSE(ActionUtils::getUseUTF8AsPreferForStampActionFlag());
  EXPECT_STREQ(ActionUtils::getUseKaviLocaleForNotifyTime(), "no");
  EXPECT_STREQ(ActionUtils::getNotifyTimeFormat(), "");
}

TEST(ActionUtilsBeforeInit, LoggingWithoutALoggerDoesNothing) {
  EXPECT_NO_THROW({
    ActionUtils::L1("%s", "nobody listens");
    ActionUtils::L2("%s", "nobody listens");
    ActionUtils::L3("%s", "nobody listens");
  });
}

TEST(ActionUtilsBeforeInit, AnActionThatFailsToLogStillFails) {
  class Action : public KaviActionN {
   public:
    Action() : KaviActionN(Stamp, false) {}
  };
  Action action;
  EXPECT_FALSE(action.construct("0-0", 3));
}
