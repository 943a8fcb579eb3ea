// Two stamp records, an action on both, and a message.
#pragma once

#include "library/actions/modification/stamp.h"
#include "library/namedobj/stamp_area.h"
#include "tests/fakes/resource_locator.h"
#include "tests/unit/library/library_test.h"

class StampTest : public LibraryTest {
 protected:
  StampTest() {
    fakes::ResourceLocators::instance().clear();
    initialise();
    EXPECT_TRUE(action.construct("2-7-9", 5));
    stamp.stampText = "Stamp";
    other.stampText = "Other";
    namedObjects.set(7, &stamp);
    namedObjects.set(9, &other);
  }
  ~StampTest() override {
    initialise();
    EXPECT_EQ(fakes::ResourceLocators::instance().alive(), 0);
  }

  /// Settings under which every default holds; there is no way back to "missing" for some.
  void initialise() {
    fakes::Settings defaults;
    defaults.set("MessageModule", "IgnoreInsertError", "0");
    defaults.set("MessageModule", "DisclaimerLineLimit", "990");
    defaults.set("MessageModule", "PreferCharsetAsUTF8", "0");
    EXPECT_TRUE(ActStamp::init(defaults, log));
    log.takeLines();
  }
  void set(const char* key, const char* value, const char* section = "MessageModule") {
    settings.set(section, key, value);
    EXPECT_TRUE(ActStamp::init(settings, log));
    ActionUtils::init(settings, log);
    log.takeLines();
  }
  bool take() { return LibraryTest::take(action, &msg, flag); }
  /// The insertions among the calls on the message.
  Texts insertions() {
    Texts found;
    for (const std::string& call : msg.facts().calls) {
      if (call.starts_with("insertText ")) {
        found.push_back(call.substr(11));
      }
    }
    msg.facts().calls.clear();
    return found;
  }
  const Texts& locators() { return fakes::ResourceLocators::instance().calls(); }

  fakes::Settings settings;
  ActStamp action;
  uiStampArea stamp;
  uiStampArea other;
  fakes::Message msg;
  bool flag = false;
};
