// The sweep over notifications, their record and settings, and sample feedback. Whatever fails, the
// mail that was composed is released; the one that is left on purpose, for want of a root, is
// released here.
#include <cinttypes>
#include <cstdio>

#include "library/namedobj/notify_area.h"
#include "library/notification/feedback.h"
#include "library/notification/notify.h"
#include "library/platform/ov_msg_functions.h"
#include "tests/fakes/config_files.h"
#include "tests/fakes/conversion.h"
#include "tests/fakes/handles.h"
#include "tests/fakes/resource_locator.h"
#include "tests/fakes/traps.h"
#include "tests/unit/library/fault_sweep.h"

namespace {

using namespace sweep;
using Kavi::ScanToken;

const char* const kNoRoot = "Cannot retrieve root Entity from the composing notification message.";
// Longer than a string's own buffer, so that every copy allocates.
const std::string kText = "a text that needs memory of its own";

/// What the fakes write down, from its beginning; everything is released by the end.
class Records {
 public:
  Records() { clear(); }
  ~Records() {
    EXPECT_EQ(fakes::Handles::instance().messages, 0);
    EXPECT_EQ(fakes::Handles::instance().sessions, 0);
    EXPECT_EQ(fakes::Handles::instance().texts, 0);
    EXPECT_EQ(fakes::Traps::instance().alive, 0);
    EXPECT_EQ(fakes::ResourceLocators::instance().alive(), 0);
    clear();
  }
  Records(const Records&) = delete;
  Records& operator=(const Records&) = delete;

 private:
  static void clear() {
    fakes::Handles::instance().clear();
    fakes::Traps::instance().clear();
    fakes::ResourceLocators::instance().clear();
    fakes::Conversions::instance().clear();
    fakes::ConfigFiles::instance().clear();
  }
};

/// The library, started on \p settings with a log that is read after the trial.
class Started {
 public:
  explicit Started(fakes::Settings& settings) {
    ActionUtils::init(settings, log);
    ActNotify::init(settings, log);
    ActionUtils::_build_token_string_table();
    log.takeLines();
  }
  ~Started() {
    log.takeLines();
    fakes::Settings none;
    fakes::CapturingLog nowhere(0);
    ActNotify::init(none, nowhere);
    ActionUtils::init(none, nowhere);
  }
  Started(const Started&) = delete;
  Started& operator=(const Started&) = delete;

  bool holds(const std::string& text) {
    for (const fakes::LogLine& line : log.takeLines()) {
      if (line.text == text) {
        return true;
      }
    }
    return false;
  }

  fakes::CapturingLog log{3};
};

/// A record that takes every way there is but those that exclude each other.
uiNotifyArea fullRecord() {
  uiNotifyArea record;
  record.name = kText;
  record.sender = "sender-that-needs-memory@gw.example";
  record.recipients = "recipient-that-needs-memory@a.example";
  record.subject = "%SUBJECT% and more that needs memory";
  record.body = "%SENDER% and more that needs memory";
  record.trapMessage = "%RULENAME% and more that needs memory";
  record.notifySender = record.notifyRecipients = record.sendTrap = record.attachMessage = true;
  record.type = 27;
  return record;
}

bool notifies(Trial& trial, uiNotifyArea record, const char* fromHeader) {
  const Records records;
  for (const char* key : {"AddMsgIdInPolicyNotify", "NotificationGetSenderFromMIME"}) {
    trial.settings.set("General-Notification", key, fromHeader);
  }
  trial.settings.set("General-Notification", "SNMPServer", "server-that-needs-memory.example");
  trial.settings.set("General-Notification", "PreferredCharset", "iso-8859-1");
  Started started(trial.settings);
  fakes::Handles::instance().prepare = [](fakes::Message& mail) {
    mail.facts().senderName = "a display name that needs memory";
  };
  trial.msg.facts().recipients = {"one@b.example", "two@b.example"};
  trial.msg.facts().subject = kText;
  trial.msg.root()->addField("From", "from-that-needs-memory@b.example");
  trial.tokens.set(ScanToken::Sender, "sender-that-needs-memory@b.example");
  trial.tokens.set(ScanToken::RuleId, "15");
  trial.namedObjects.set(7, &record);
  ActNotify action;
  action.construct("1-7", 3);
  fakes::Message original;
  bool flag = true;
  bool result = false;
  trial.run([&] {
    result = action.takeAction(&trial.msg, &original, flag, trial.tokens, trial.adapter,
                               trial.namedObjects);
  });
  EXPECT_FALSE(flag);
  EXPECT_LE(trial.adapter.calls().size(), 1u);
  if (result && trial.kind() == FaultKind::None) {
    EXPECT_EQ(trial.adapter.calls().size(), 1u);
    EXPECT_EQ(fakes::Traps::instance().sent.size(), record.sendTrap ? 1u : 0u);
  }
  if (fakes::Handles::instance().messages == 1) {
    EXPECT_TRUE(started.holds(kNoRoot)) << "left for another reason";
    OvMsg_DeleteMailMessage(fakes::Handles::instance().last);
  }
  return result;
}

bool startsNotifications(Trial& trial) {
  const Records records;
  for (const char* key : {"SNMPServer", "Community", "SNMPVersion", "MailFrom"}) {
    trial.settings.set("General-Notification", key, kText);
  }
  bool result = false;
  fakes::CapturingLog log(0);
  trial.run([&] { result = ActNotify::init(trial.settings, log); });
  EXPECT_TRUE(result) << "nothing stops the start";
  fakes::Settings none;
  ActNotify::init(none, log);
  return result;
}

bool givesFeedback(Trial& trial) {
  const Records records;
  fakes::Entity* const first = trial.msg.root()->addPart("first");
  fakes::Entity* const second = trial.msg.root()->addPart("second");
  char marks[128];
  std::snprintf(marks, sizeof marks, "1 %" PRIxPTR ";2 %" PRIxPTR,
                reinterpret_cast<std::uintptr_t>(first), reinterpret_cast<std::uintptr_t>(second));
  trial.tokens.set(ScanToken::MarkedForFeedback, marks);
  ActPackwatch action;
  bool flag = true;
  const bool result = takes(trial, action, flag);
  EXPECT_TRUE(flag) << "left alone";
  EXPECT_LE(trial.adapter.calls().size(), 2u);
  return result;
}

bool startsFeedback(Trial& trial) {
  const Records records;
  fakes::ConfigFiles::instance().set("/home-that-needs-memory/config/scanner.info",
                                     {{"update/virus_engine_version", kText}});
  trial.settings.set("general", "queue_notify", "/var/notify-that-needs-memory");
  trial.settings.set("general", "kavi_home", "/home-that-needs-memory");
  bool result = false;
  fakes::CapturingLog log(0);
  trial.run([&] { result = ActPackwatch::init(trial.settings, log); });
  return result;
}

const Operation kOperations[] = {
    {"uiNotifyArea::construct",
     [](Trial& trial) {
       const std::string text = fullRecord().serialize();
       uiNotifyArea record;
       bool result = false;
       trial.run([&] {
         result = record.construct(text.c_str(), static_cast<unsigned int>(text.size()));
       });
       EXPECT_EQ(record.type, result ? 27u : 0u);
       return result;
     }},
    {"uiNotifyArea::serialize",
     [](Trial& trial) {
       uiNotifyArea record = fullRecord();
       const std::string expected = record.serialize();
       std::string text;
       trial.run([&] { text = record.serialize(); });
       EXPECT_TRUE(text.empty() || text == expected) << text;
       return text == expected;
     }},
    {"ActNotify::init", startsNotifications},
    {"ActNotify::takeAction", [](Trial& trial) { return notifies(trial, fullRecord(), "0"); }},
    {"ActNotify::takeAction, sender of the header",
     [](Trial& trial) { return notifies(trial, fullRecord(), "1"); }},
    {"ActNotify::takeAction, plain",
     [](Trial& trial) {
       uiNotifyArea record;
       record.recipients = "recipient-that-needs-memory@a.example";
       return notifies(trial, record, "0");
     }},
    {"ActPackwatch::init", startsFeedback},
    {"ActPackwatch::takeAction", givesFeedback},
};

INSTANTIATE_TEST_SUITE_P(Notification, FaultSweepTest, each(kOperations), nameOf);

}  // namespace
