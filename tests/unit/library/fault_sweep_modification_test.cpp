// The sweep over the stamp's record and the actions that change a message.
#include <cinttypes>
#include <cstdio>

#include "library/actions/modification/delete_attachment.h"
#include "library/actions/modification/stamp.h"
#include "library/actions/modification/tag_subject.h"
#include "library/namedobj/stamp_area.h"
#include "tests/fakes/conversion.h"
#include "tests/fakes/resource_locator.h"
#include "tests/unit/library/fault_sweep.h"

namespace {

using namespace sweep;
using Kavi::ScanToken;

// Longer than a string's own buffer, so that every copy allocates.
const std::string kText = "a text that needs memory of its own";

/// The fakes that write down what they are asked, from their beginning; every resource is released
/// by the end.
class Records {
 public:
  Records() { clear(); }
  ~Records() {
    EXPECT_EQ(fakes::ResourceLocators::instance().alive(), 0);
    clear();
  }
  Records(const Records&) = delete;
  Records& operator=(const Records&) = delete;

 private:
  static void clear() {
    fakes::ResourceLocators::instance().clear();
    fakes::Conversions::instance().clear();
  }
};

using Init = bool (*)(Kavi::GlobalSetting&, Kavi::LogMsg&);

void set(Init init, std::initializer_list<std::pair<const char*, const char*>> values) {
  fakes::Settings settings;
  for (const auto& [key, value] : values) {
    settings.set("MessageModule", key, value);
  }
  fakes::CapturingLog quiet(0);
  init(settings, quiet);
}

void resetStamps() {
  set(&ActStamp::init,
      {{"IgnoreInsertError", "0"}, {"DisclaimerLineLimit", "990"}, {"PreferCharsetAsUTF8", "0"}});
}

bool startsStamps(Trial& trial) {
  const Records records;
  trial.settings.set("MessageModule", "IgnoreInsertError", "1");
  trial.settings.set("MessageModule", "DisclaimerLineLimit", "10");
  trial.settings.set("general", "NumOfBlankLineBeforeStampMessage", "2");
  trial.settings.set("MessageModule", "InsertStampAsAttachment", "1");
  trial.settings.set("MessageModule", "PreferCharsetAsUTF8", "1");
  bool result = false;
  trial.run([&] {
    fakes::CapturingLog log(0);
    result = ActStamp::init(trial.settings, log);
  });
  EXPECT_TRUE(result) << "nothing stops the start";
  const Texts calls = fakes::ResourceLocators::instance().calls();
  resetStamps();
  return calls == Texts{"stamps as attachments 1"};
}

/// What the n-th failure leaves of a stamped message: the whole stamp, or none.
bool stamps(Trial& trial, const std::string& text, const std::string& inserted) {
  const Records records;
  set(&ActStamp::init, {{"DisclaimerLineLimit", "30"}, {"PreferCharsetAsUTF8", "1"}});
  uiStampArea stamp;
  stamp.stampText = text;
  trial.namedObjects.set(7, &stamp);
  ActStamp action;
  action.construct("1-7", 3);
  bool flag = false;
  const bool result = takes(trial, action, flag);
  EXPECT_FALSE(flag);
  const Texts& calls = trial.msg.facts().calls;
  const bool wasInserted = !calls.empty() && calls.back().starts_with("insertText");
  EXPECT_TRUE(result || trial.fired());
  resetStamps();
  return result && wasInserted && calls.back() == "insertText 2 20 utf-8 utf-8 '" + inserted + "'";
}

bool reads(Trial& trial) {
  uiStampArea stamp;
  const std::string setting = "1:2:35:" + kText + ":35:" + kText + ":";
  bool result = false;
  trial.run([&] {
    result = stamp.construct(setting.c_str(), static_cast<unsigned int>(setting.size()));
  });
  EXPECT_EQ(stamp.auxText, result ? kText : "");
  return result && stamp.stampText == kText;
}

/// A message with two subjects, tagged under the settings given.
bool tags(Trial& trial, const char* directly, const Texts& tagged) {
  const Records records;
  set(&ActTagSubject::init, {{"TagDirectly", directly}});
  trial.msg.facts().charset = "utf-8";
  trial.msg.root()->addField("From", kText);
  trial.msg.root()->addField("Subject", kText);
  trial.msg.root()->addField("Subject", kText);
  ActTagSubject action;
  action.setTagSubjectAction(false, "[a tag that needs memory of its own]");
  bool flag = true;
  const bool result = takes(trial, action, flag);
  EXPECT_FALSE(flag);
  EXPECT_TRUE(result || trial.fired());
  set(&ActTagSubject::init, {{"TagDirectly", "0"}});
  return result && trial.msg.fields() == tagged;
}

bool addsSubject(Trial& trial) {
  const Records records;
  ActTagSubject action;
  action.setTagSubjectAction(false, kText.c_str());
  bool flag = true;
  const bool result = takes(trial, action, flag);
  EXPECT_FALSE(flag);
  const Texts fields = trial.msg.fields();
  EXPECT_TRUE(fields.empty() || fields == Texts{"Subject:" + kText});
  return result && !fields.empty();
}

template <class Settings>
bool copiesTag(Trial& trial) {
  Settings settings;
  bool signedToo = false;
  std::string tag = "old";
  int set = -1;
  int got = -1;
  trial.run([&] {
    set = settings.setTagSubjectAction(true, kText.c_str());
    got = settings.getTagSubjectAction(signedToo, tag);
  });
  EXPECT_EQ(settings.serialize(), set == 0 ? "T" + kText : "F");
  EXPECT_TRUE(got == 0 || (tag == "old" && !signedToo));
  return set == 0 && got == 0 && tag == kText && signedToo;
}

std::string markOf(const OvMsgEntity* entity) {
  char item[64];
  std::snprintf(item, sizeof item, "1 %" PRIxPTR ";", reinterpret_cast<std::uintptr_t>(entity));
  return item;
}

/// Two attachments and the root, with or without a virus.
bool deletes(Trial& trial, bool virus, bool all) {
  const Records records;
  fakes::Entity* const first = trial.msg.root()->addPart("first, with a name that needs memory");
  fakes::Entity* const second = trial.msg.root()->addPart("second, with a name that needs memory");
  trial.msg.root()->addPart("rest");
  first->facts().file.emplace().text = "name";
  second->facts().file.emplace().text = "name";
  if (virus) {
    trial.tokens.set(ScanToken::VirusName, kText);
    trial.tokens.set(ScanToken::VirusAction, kText);
  }
  trial.tokens.set(ScanToken::MarkedForDeletion,
                   markOf(trial.msg.root()) + markOf(first) + markOf(second));
  ActDeleteAttachment action;
  action.construct(all ? "T" : "F", 1);
  bool flag = false;
  const bool result = takes(trial, action, flag);
  EXPECT_FALSE(flag);
  EXPECT_TRUE(result || trial.fired());
  const std::string actions = trial.tokens.valueOrEmpty(ScanToken::VirusAction);
  const bool isCleared = !trial.msg.root()->facts().content.empty();
  return result && !trial.msg.root()->holds(first) && !trial.msg.root()->holds(second) &&
         isCleared == (virus && !all) && (!virus || actions.size() > kText.size());
}

bool deletesWhole(Trial& trial) {
  trial.tokens.set(ScanToken::VirusName, kText);
  trial.tokens.set(ScanToken::WholeMailScan, "1");
  trial.tokens.set(ScanToken::VirusAction, kText);
  ActDeleteAttachment action;
  bool flag = false;
  const bool result = takes(trial, action, flag);
  EXPECT_EQ(flag, result) << "disposed of, and said so, or neither";
  EXPECT_TRUE(!result || trial.adapter.calls().size() == 1);
  const std::string actions = trial.tokens.valueOrEmpty(ScanToken::VirusAction);
  return result && actions.size() > kText.size() &&
         trial.tokens.valueOrEmpty(ScanToken::MessageRemains) == "0";
}

const std::string kTag = "[a tag that needs memory of its own]";

const Operation kOperations[] = {
    {"uiStampArea::construct", reads},
    {"uiStampArea::serialize",
     [](Trial& trial) {
       return serializes<uiStampArea>(trial, "1:2:35:" + kText + ":35:" + kText + ":",
                                      "1:2:35:" + kText + ":35:" + kText + ":");
     }},
    {"ActStamp::init", startsStamps},
    {"ActStamp::takeAction",
     [](Trial& trial) {
       return stamps(trial, "a stamp\x03of two short lines", "a stamp\r\nof two short lines");
     }},
    {"ActStamp::takeAction, long line",
     [](Trial& trial) {
       return stamps(trial, std::string(50, 'x'),
                     std::string(30, 'x') + "\r\n" + std::string(20, 'x'));
     }},
    {"ActStamp::modifyIfHasLimitLine",
     [](Trial& trial) {
       set(&ActStamp::init, {{"DisclaimerLineLimit", "30"}});
       ActStamp action;
       const std::string before(50, 'x');
       std::string text = before;
       bool result = false;
       trial.run([&] { result = action.modifyIfHasLimitLine(text, "iso-2022-jp"); });
       resetStamps();
       EXPECT_EQ(text, result ? std::string(30, 'x') + "\r\n" + std::string(20, 'x') : before);
       return result;
     }},
    {"ActTagSubject::init",
     [](Trial& trial) {
       trial.settings.set("MessageModule", "TagDirectly", "0");
       bool result = false;
       trial.run([&] {
         fakes::CapturingLog log(0);
         result = ActTagSubject::init(trial.settings, log);
       });
       EXPECT_TRUE(result) << "nothing stops the start";
       return result;
     }},
    {"uiTagSubject::construct",
     [](Trial& trial) { return constructs<uiTagSubject>(trial, "T" + kText); }},
    {"ActTagSubject::construct",
     [](Trial& trial) { return constructs<ActTagSubject>(trial, "T" + kText); }},
    {"uiTagSubject::serialize",
     [](Trial& trial) { return serializes<uiTagSubject>(trial, "T" + kText, "T" + kText); }},
    {"ActTagSubject::serialize",
     [](Trial& trial) { return serializes<ActTagSubject>(trial, "T" + kText, "T" + kText); }},
    {"uiTagSubject::set and getTagSubjectAction", copiesTag<uiTagSubject>},
    {"ActTagSubject::set and getTagSubjectAction", copiesTag<ActTagSubject>},
    {"ActTagSubject::takeAction",
     [](Trial& trial) {
       return tags(trial, "0",
                   {"From:" + kText, "Subject:" + kTag + kText, "Subject:" + kTag + kText});
     }},
    {"ActTagSubject::takeAction, directly",
     [](Trial& trial) {
       return tags(
           trial, "1",
           {"From:" + kText, "Subject:" + kTag + " " + kText, "Subject:" + kTag + " " + kText});
     }},
    {"ActTagSubject::takeAction, no subject", addsSubject},
    {"ActDeleteAttachment::takeAction, marked",
     [](Trial& trial) {
       trial.msg.root()->facts().isBody = true;  // spared
       return deletes(trial, false, false);
     }},
    {"ActDeleteAttachment::takeAction, marked, virus",
     [](Trial& trial) { return deletes(trial, true, false); }},
    {"ActDeleteAttachment::takeAction, all",
     [](Trial& trial) { return deletes(trial, false, true); }},
    {"ActDeleteAttachment::takeAction, all, virus",
     [](Trial& trial) { return deletes(trial, true, true); }},
    {"ActDeleteAttachment::takeAction, whole message", deletesWhole},
    {"ActDeleteAttachment::getNamedObjectIds",
     [](Trial& trial) { return answersIds<ActDeleteAttachment>(trial, true); }},
    {"ActTagSubject::getNamedObjectIds",
     [](Trial& trial) { return answersIds<ActTagSubject>(trial, true); }},
};

INSTANTIATE_TEST_SUITE_P(Modification, FaultSweepTest, each(kOperations), nameOf);

}  // namespace
