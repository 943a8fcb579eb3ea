// The sweep over the actions that quarantine, archive, hand off, readdress and encrypt.
#include "library/actions/disposition/archive.h"
#include "library/actions/disposition/encryption.h"
#include "library/actions/disposition/handoff.h"
#include "library/actions/disposition/quarantine.h"
#include "library/actions/disposition/readdress.h"
#include "library/namedobj/quarantine_area.h"
#include "library/platform/archive_area.h"
#include "library/platform/blob.h"
#include "tests/unit/library/fault_sweep.h"

namespace {

using namespace sweep;
using Kavi::ScanToken;

const std::string kLong = "a-value-that-needs-memory-of-its-own";
const std::string kRules = "X-kavi-reprocess-rules:one-rule-id-that-needs-memory";

std::string handoffRecord() {
  std::string text;
  Blob::writeBlob(text, {{"ip", kLong}, {"port", "25"}});
  return text;
}

std::string recipientRecord(const std::string& recipients = kLong) {
  std::string text;
  Blob::writeBlob(text, {{"rcpt", recipients}});
  return text;
}

/// A message that came back through scanning once, of a rule that has fired.
void prepare(Trial& trial) {
  trial.msg.root()->addHeader(-1, "X-kavi-reprocess-rules", "one-rule-id-that-needs-memory",
                              nullptr);
  trial.msg.facts().recipients = {"first@a.example"};
  trial.tokens.set(ScanToken::RuleId, "another-rule-id-that-needs-memory");
}

/// The mark of the hand-over is off again. A platform that only says that it failed is not asked
/// twice.
void expectRestored(Trial& trial) {
  if (trial.kind() != FaultKind::PlatformFailure) {
    ASSERT_FALSE(trial.msg.fields().empty());
    EXPECT_EQ(trial.msg.fields()[0], kRules);
  }
}

template <class Action>
bool reads(Trial& trial, const std::string& setting, std::string Action::*member) {
  Action action;
  bool result = false;
  trial.run([&] { result = action.construct(setting.c_str(), 1); });
  EXPECT_EQ(action.*member, result ? kLong : "");
  return result;
}

const Operation kOperations[] = {
    {"ActQuarantine::init",
     [](Trial& trial) {
       trial.settings.set("general", "queue_quarantine", "/var/q");
       bool result = false;
       trial.run([&] {
         fakes::CapturingLog log(0);
         result = ActQuarantine::init(trial.settings, log);
       });
       return result;
     }},
    {"ActQuarantine::fillInTokenMap",
     [](Trial& trial) {
       ActQuarantine action;
       action.construct("1-7", 3);
       uiQuarantineArea area;
       area.areaName = kLong;
       trial.namedObjects.set(7, &area);
       trial.run([&] { action.fillInTokenMap(trial.tokens, trial.namedObjects); });
       return trial.tokens.valueOrEmpty(ScanToken::QuarantineArea) == kLong;
     }},
    {"ActQuarantine::takeAction",
     [](Trial& trial) {
       prepare(trial);
       ActQuarantine action;
       action.construct("1-7", 3);
       uiQuarantineArea area;
       area.agingEnabled = true;
       area.agingDays = 30;
       trial.namedObjects.set(7, &area);
       bool flag = false;
       const bool result = takes(trial, action, flag);
       EXPECT_TRUE(flag) << "set before anything can fail";
       expectRestored(trial);
       if (result) {
         EXPECT_EQ(trial.adapter.calls().size(), 1u);
         EXPECT_NE(trial.tokens.find(ScanToken::QuarantinePath), nullptr);
       }
       return result;
     }},
    {"ActArchive::init",
     [](Trial& trial) {
       trial.settings.set("general", "queue_archive", "/var/a");
       bool result = false;
       trial.run([&] {
         fakes::CapturingLog log(0);
         result = ActArchive::init(trial.settings, log);
       });
       return result;
     }},
    {"ActArchive::takeAction",
     [](Trial& trial) {
       ActArchive action;
       action.construct("1-7", 3);
       ArchiveArea area;
       area.areaName = kLong;
       trial.namedObjects.set(7, &area);
       bool flag = false;
       const bool result = takes(trial, action, flag);
       EXPECT_FALSE(flag);
       EXPECT_EQ(trial.adapter.calls().size(), result ? 1u : 0u);
       return result;
     }},
    {"ActHandoff::init",
     [](Trial& trial) {
       trial.settings.set("MessageModule", "RemoveKaviMsgID", "0");
       bool result = false;
       trial.run([&] {
         fakes::CapturingLog log(0);
         result = ActHandoff::init(trial.settings, log);
       });
       EXPECT_TRUE(result);
       return result;
     }},
    {"uiHandoff::construct",
     [](Trial& trial) {
       const std::string setting = handoffRecord();
       uiHandoff settings;
       bool result = false;
       trial.run([&] { result = settings.construct(setting.c_str(), 1); });
       EXPECT_TRUE(settings.ip.empty() || settings.ip == kLong);
       EXPECT_EQ(settings.port, result ? 25 : 0);
       return result;
     }},
    {"ActHandoff::construct",
     [](Trial& trial) { return reads(trial, handoffRecord(), &ActHandoff::ip); }},
    {"uiHandoff::serialize",
     [](Trial& trial) { return serializes<uiHandoff>(trial, handoffRecord(), handoffRecord()); }},
    {"ActHandoff::serialize",
     [](Trial& trial) { return serializes<ActHandoff>(trial, handoffRecord(), handoffRecord()); }},
    {"ActHandoff::takeAction",
     [](Trial& trial) {
       ActHandoff action;
       action.ip = kLong;
       action.port = 25;
       bool flag = false;
       const bool result = takes(trial, action, flag);
       EXPECT_TRUE(flag) << "set before anything can fail";
       EXPECT_EQ(trial.adapter.calls().size(), result ? 1u : 0u);
       return result;
     }},
    {"uiReaddress::construct",
     [](Trial& trial) { return reads(trial, recipientRecord(), &uiReaddress::rcpt); }},
    {"uiBcc::construct",
     [](Trial& trial) { return reads<uiBcc>(trial, recipientRecord(), &uiBcc::rcpt); }},
    {"ActReaddress::construct",
     [](Trial& trial) { return reads(trial, recipientRecord(), &ActReaddress::recipients); }},
    {"ActBcc::construct",
     [](Trial& trial) { return reads<ActBcc>(trial, recipientRecord(), &ActBcc::recipients); }},
    {"uiReaddress::serialize",
     [](Trial& trial) {
       return serializes<uiReaddress>(trial, recipientRecord(), recipientRecord());
     }},
    {"ActReaddress::serialize",
     [](Trial& trial) {
       return serializes<ActReaddress>(trial, recipientRecord(), recipientRecord());
     }},
    {"ActBcc::serialize",
     [](Trial& trial) { return serializes<ActBcc>(trial, recipientRecord(), recipientRecord()); }},
    {"uiReaddress::setRcpt",
     [](Trial& trial) {
       uiReaddress settings;
       trial.run([&] { settings.setRcpt(kLong.c_str()); });
       EXPECT_TRUE(settings.getRcpt().empty() || settings.getRcpt() == kLong);
       return settings.getRcpt() == kLong;
     }},
    {"ActReaddress::takeAction",
     [](Trial& trial) {
       prepare(trial);
       trial.tokens.set(ScanToken::PendingBcc, "blind-copy-one@a.example;blind-copy-two@a.example");
       ActReaddress action;
       action.recipients = "recipient-one@a.example ; recipient-two@a.example";
       bool flag = false;
       const bool result = takes(trial, action, flag);
       EXPECT_EQ(flag, result);
       expectRestored(trial);
       EXPECT_FALSE(trial.msg.facts().recipients.empty()) << "never nobody";
       if (result) {
         EXPECT_EQ(trial.adapter.calls().size(), 1u);
         EXPECT_EQ(trial.msg.facts().recipients.size(), 4u);
       }
       return result;
     }},
    {"ActBcc::takeAction",
     [](Trial& trial) {
       prepare(trial);
       trial.tokens.set(ScanToken::PendingBcc, "blind-copy-one@a.example");
       ActBcc action;
       action.recipients = "blind-copy-two@a.example";
       bool flag = false;
       const bool result = takes(trial, action, flag);
       EXPECT_FALSE(flag);
       const std::string pending = trial.tokens.valueOrEmpty(ScanToken::PendingBcc);
       EXPECT_EQ(pending, result ? "blind-copy-one@a.example;blind-copy-two@a.example;"
                                 : "blind-copy-one@a.example");
       EXPECT_EQ(trial.msg.facts().recipients.front(), "first@a.example");
       return result;
     }},
    {"uiIBEEncrypt::serialize",
     [](Trial& trial) { return serializes<uiIBEEncrypt>(trial, "", "Todo::check with Quillon"); }},
    {"ActIBEReEncrypt::serialize",
     [](Trial& trial) {
       return serializes<ActIBEReEncrypt>(trial, "", "Todo::check with Quillon");
     }},
};

INSTANTIATE_TEST_SUITE_P(Disposition, FaultSweepTest, each(kOperations), nameOf);

}  // namespace
