// A notification record, an action on it, a scanned message, and whoever takes mails and traps.
#pragma once

#include "library/namedobj/notify_area.h"
#include "library/notification/notify.h"
#include "tests/fakes/conversion.h"
#include "tests/fakes/handles.h"
#include "tests/fakes/resource_locator.h"
#include "tests/fakes/traps.h"
#include "tests/unit/library/library_test.h"
#include "tests/unit/library/notification/mail_catcher.h"

class NotifyTest : public LibraryTest {
 protected:
  NotifyTest() {
    fakes::Handles::instance().clear();
    fakes::Traps::instance().clear();
    fakes::Conversions::instance().clear();
    fakes::ResourceLocators::instance().clear();
    ActNotify::init(settings, log);
    ActionUtils::_build_token_string_table();
    log.takeLines();
    EXPECT_TRUE(action.construct("1-7", 3));
    record.name = "tell the postmaster";
    record.sender = "kavi@gw.example";
    record.recipients = "admin@a.example";
    record.subject = "rule matched";
    record.body = "a rule matched";
    namedObjects.set(7, &record);
    tokens.set(Kavi::ScanToken::RuleId, "15");
    msg.facts().recipients = {"one@b.example", "two@b.example"};
  }
  ~NotifyTest() override {
    fakes::Settings none;
    ActNotify::init(none, log);
    EXPECT_EQ(fakes::Handles::instance().messages, 0);
    EXPECT_EQ(fakes::Handles::instance().sessions, 0);
    EXPECT_EQ(fakes::Handles::instance().texts, 0);
    EXPECT_EQ(fakes::Traps::instance().alive, 0);
    EXPECT_EQ(fakes::ResourceLocators::instance().alive(), 0);
  }

  void set(const char* key, const std::string& value,
           const char* section = "General-Notification") {
    settings.set(section, key, value);
    ActNotify::init(settings, log);
    ActionUtils::init(settings, log);
    log.takeLines();
  }
  bool take() { return action.takeAction(&msg, &original, flag, tokens, catcher, namedObjects); }
  /// The one mail that is expected.
  const CaughtMail& mail() {
    EXPECT_EQ(catcher.mails.size(), 1u);
    static const CaughtMail kNone;
    return catcher.mails.empty() ? kNone : catcher.mails.front();
  }
  /// Sets up each mail that is composed.
  void prepare(std::function<void(fakes::Message&)> setUp) {
    fakes::Handles::instance().prepare = std::move(setUp);
  }
  /// The action fails for \p reason, and no mail goes out.
  void expectFailure(const std::string& reason) {
    EXPECT_FALSE(take());
    EXPECT_EQ(
        log.takeLines(1),
        (Texts{reason, "Failed to send out notification, named 'tell the postmaster' (id=7)."}));
    EXPECT_TRUE(catcher.mails.empty());
    EXPECT_EQ(fakes::Handles::instance().messages, 0);
    EXPECT_TRUE(fakes::Traps::instance().sent.empty());
  }
  bool logged(int level, const std::string& text) {
    const auto lines = log.takeLines();
    return std::find(lines.begin(), lines.end(), fakes::LogLine{level, text}) != lines.end();
  }

  fakes::Settings settings;
  ActNotify action;
  uiNotifyArea record;
  fakes::Message msg;
  fakes::Message original;
  MailCatcher catcher;
  bool flag = true;
};

using Recipients = std::list<std::string>;
