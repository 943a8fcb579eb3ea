// An action that tags with "[X] ", and a message in koi8-r where the local charset is iso-8859-5.
#pragma once

#include "library/actions/modification/tag_subject.h"
#include "tests/fakes/conversion.h"
#include "tests/unit/library/library_test.h"

class TagSubjectTest : public LibraryTest {
 protected:
  TagSubjectTest() {
    fakes::Conversions::instance().clear();
    initialise("0", "0");
    settings.set("MessageModule", "DefaultSourceCharset", "iso-8859-5");
    ActionUtils::init(settings, log);
    log.takeLines();
    msg.facts().charset = "koi8-r";
    tag("[X] ");
  }
  ~TagSubjectTest() override {
    initialise("0", "0");
    fakes::Conversions::instance().clear();
  }

  void initialise(const char* directly, const char* notEncoding) {
    fakes::Settings values;
    values.set("MessageModule", "TagDirectly", directly);
    values.set("MessageModule", "TagNotEncoding", notEncoding);
    EXPECT_TRUE(ActTagSubject::init(values, log));
  }
  void tag(const std::string& text, bool signedToo = false) {
    EXPECT_EQ(action.setTagSubjectAction(signedToo, text.c_str()), 0);
  }
  fakes::Header* subject(const std::string& value) {
    return msg.root()->addField("Subject", value);
  }
  bool take() {
    flag = true;
    const bool result = LibraryTest::take(action, &msg, flag);
    EXPECT_FALSE(flag) << "cleared at once";
    return result;
  }
  std::string token() const { return tokens.valueOrEmpty(Kavi::ScanToken::Subject); }
  Texts conversions() {
    Texts calls = fakes::Conversions::instance().calls();
    fakes::Conversions::instance().calls().clear();
    return calls;
  }

  fakes::Settings settings;
  ActTagSubject action;
  fakes::Message msg;
  bool flag = false;
};
