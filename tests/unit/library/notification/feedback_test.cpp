#include "library/notification/feedback.h"

#include "tests/fakes/config_files.h"
#include "tests/fakes/handles.h"
#include "tests/unit/library/library_test.h"
#include "tests/unit/library/notification/mail_catcher.h"

namespace {

using fakes::Handles;
using fakes::LogLines;
using Kavi::ScanToken;

const char* const kNoMarks = "No marked MIME Entities for packwatch.";
const std::string kVersionFile = "/opt/kavi/config/scanner.info";

class FeedbackTest : public LibraryTest {
 protected:
  FeedbackTest() {
    Handles::instance().clear();
    fakes::ConfigFiles::instance().clear();
    first = msg.root()->addPart("first");
    second = msg.root()->addPart("second");
  }
  ~FeedbackTest() override {
    Handles::instance().clear();
    EXPECT_EQ(Handles::instance().messages, 0);
    EXPECT_EQ(Handles::instance().sessions, 0);
  }

  static std::string mark(unsigned int id, const OvMsgEntity* entity) {
    char text[64];
    std::snprintf(text, sizeof text, "%u %lx", id, reinterpret_cast<unsigned long>(entity));
    return text;
  }
  static std::string handle(const OvMsgEntity* entity) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X",
                  static_cast<unsigned int>(reinterpret_cast<unsigned long>(entity)));
    return text;
  }
  void marked(const std::string& list) { tokens.set(ScanToken::MarkedForFeedback, list); }
  bool take() { return action.takeAction(&msg, nullptr, flag, tokens, catcher, namedObjects); }
  bool start(const char* home = "/opt/kavi") {
    fakes::Settings settings;
    settings.set("general", "queue_notify", "/var/notify");
    settings.set("general", "kavi_home", home);
    return ActPackwatch::init(settings, log);
  }
  /// Sets up each mail that is composed.
  void prepare(std::function<void(fakes::Message&)> setUp) {
    Handles::instance().prepare = std::move(setUp);
  }
  void expectFailure(const std::string& reason) {
    marked(mark(3, first));
    EXPECT_FALSE(take());
    EXPECT_EQ(
        log.takeLines(),
        (LogLines{{1, reason},
                  {2, "Failed to packwatch the MIME Entity (" + handle(first) + ", id=3)."}}));
    EXPECT_TRUE(catcher.mails.empty());
  }

  ActPackwatch action;
  fakes::Message msg;
  fakes::Entity* first;
  fakes::Entity* second;
  MailCatcher catcher;
  bool flag = true;
};

TEST_F(FeedbackTest, HasAGeneralSubjectWithoutTheVersionFile) {
  fakes::ConfigFiles::instance().set(kVersionFile, {{"update/virus_engine_version", "e"}});
  for (const bool readBefore : {false, true}) {
    SCOPED_TRACE(readBefore);
    if (readBefore) {
      EXPECT_TRUE(start());
      log.takeLines();
    }
    EXPECT_TRUE(start("/no/such/home"));
    EXPECT_EQ(log.takeLines(),
              (LogLines{{2, "load pattern info failed,file:/no/such/home/config/scanner.info"}}));
    catcher.mails.clear();
    marked(mark(1, first) + ";" + mark(2, second));
    EXPECT_TRUE(take());
    ASSERT_EQ(catcher.mails.size(), 2u);
    for (const CaughtMail& mail : catcher.mails) {
      EXPECT_EQ(mail.field("Subject"), "KAVI Lurebox Feedback");
    }
  }
}

TEST_F(FeedbackTest, ReadsItsFoldersInOrder) {
  fakes::Settings none;
  EXPECT_FALSE(ActPackwatch::init(none, log));
  EXPECT_EQ(none.lookups(), Texts{"getString general/queue_notify"});
  fakes::Settings queue;
  queue.set("general", "queue_notify", "/var/notify");
  EXPECT_FALSE(ActPackwatch::init(queue, log));
  EXPECT_EQ(queue.lookups(),
            (Texts{"getString general/queue_notify", "getString general/kavi_home"}));
  EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(FeedbackTest, NamesTheVersionsInTheSubject) {
  fakes::ConfigFiles::instance().set(kVersionFile, {{"update/virus_engine_version", "e"},
                                                    {"update/virus_pattern_version", "v"},
                                                    {"update/fastlane_agent_pattern_version", "a"},
                                                    {"update/spyware_pattern_version", "s"},
                                                    {"update/packwatch_pattern_version", "h"},
                                                    {"update/packwatch_exception_version", "x"}});
  EXPECT_TRUE(start());
  const std::string subject =
      "KAVI Lurebox Feedback:  engine: e, viruspat: v, agentpat: a, spywarepat: s, heurpat: h, "
      "heurexc: x";
  EXPECT_EQ(log.takeLines(), (LogLines{{2, "load pattern info success:" + subject}}));
  marked(mark(1, first));
  EXPECT_TRUE(take());
  ASSERT_EQ(catcher.mails.size(), 1u);
  EXPECT_EQ(catcher.mails[0].field("Subject"), subject);
}

TEST_F(FeedbackTest, NamesNoVersionThatTheFileDoesNotTell) {
  fakes::ConfigFiles::instance().set(kVersionFile, {});
  EXPECT_TRUE(start());
  EXPECT_EQ(log.takeLines(),
            (LogLines{{2,
                       "load pattern info success:KAVI Lurebox Feedback:  engine: , viruspat: , "
                       "agentpat: , spywarepat: , heurpat: , heurexc: "}}));
}

TEST_F(FeedbackTest, CutsTheSubject) {
  fakes::ConfigFiles::instance().set(kVersionFile,
                                     {{"update/virus_engine_version", std::string(2000, 'e')}});
  EXPECT_TRUE(start());
  marked(mark(1, first));
  EXPECT_TRUE(take());
  ASSERT_EQ(catcher.mails.size(), 1u);
  EXPECT_EQ(catcher.mails[0].field("Subject").size(), 1023u);
}

TEST_F(FeedbackTest, MailsTheMarkedEntity) {
  marked(mark(3, first));
  EXPECT_TRUE(take());
  EXPECT_TRUE(flag) << "left alone";
  ASSERT_EQ(catcher.mails.size(), 1u);
  const CaughtMail& mail = catcher.mails[0];
  EXPECT_EQ(mail.how, "deliver");
  EXPECT_EQ(mail.recipients, std::list<std::string>{ActPackwatch::feedbackAddress()});
  EXPECT_EQ(mail.sender, "KAVI");
  EXPECT_EQ(mail.content, Texts{"child first -1"});
  EXPECT_EQ(mail.fields.size(), 3u);
  EXPECT_TRUE(mail.fields[0].starts_with("Subject:KAVI Lurebox Feedback"));
  EXPECT_EQ(mail.fields[1], "Content-Transfer-Encoding:7bit");
  EXPECT_EQ(mail.fields[2], std::string("TO:") + ActPackwatch::feedbackAddress());
  EXPECT_TRUE(msg.fields().empty());
  EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(FeedbackTest, GoesNowhereUnlessTheBuildSaysOtherwise) {
  EXPECT_STREQ(ActPackwatch::feedbackAddress(), "feedback@localhost.invalid");
}

TEST_F(FeedbackTest, MailsEachMarkedEntityInOrder) {
  marked(mark(1, second) + ";" + mark(2, first) + ";" + mark(3, second) + ";");
  EXPECT_TRUE(take());
  ASSERT_EQ(catcher.mails.size(), 3u);
  EXPECT_EQ(catcher.mails[0].content, Texts{"child second -1"});
  EXPECT_EQ(catcher.mails[1].content, Texts{"child first -1"});
  EXPECT_EQ(catcher.mails[2].content, Texts{"child second -1"});
}

TEST_F(FeedbackTest, PassesOverEntitiesOfOtherMessages) {
  fakes::Message other;
  marked(mark(1, other.root()) + ";" + mark(2, first));
  EXPECT_TRUE(take());
  EXPECT_EQ(catcher.mails.size(), 1u);
  EXPECT_TRUE(log.takeLines().empty());
  EXPECT_TRUE(action.takeAction(nullptr, nullptr, flag, tokens, catcher, namedObjects));
  EXPECT_EQ(catcher.mails.size(), 1u);
}

TEST_F(FeedbackTest, SendsNothingForAListThatCannotBeRead) {
  EXPECT_TRUE(take()) << "no list at all";
  EXPECT_EQ(log.takeLines(), (LogLines{{2, kNoMarks}}));
  const std::string good = mark(1, first);
  for (const std::string& list :
       {std::string(), std::string("x"), good + ";2 0", good + ";two " + good, good + ";;",
        std::string("1 0"), good + ";" + std::string(63, '1') + " 1", ";" + good}) {
    SCOPED_TRACE(list);
    marked(list);
    EXPECT_TRUE(take());
    EXPECT_EQ(log.takeLines(), (LogLines{{2, kNoMarks}}));
  }
  EXPECT_TRUE(catcher.mails.empty()) << "not even for the good items";
}

TEST_F(FeedbackTest, HasNothingToDoForAnEmptyList) {
  marked(";");
  EXPECT_TRUE(take());
  EXPECT_TRUE(log.takeLines().empty());
  EXPECT_TRUE(catcher.mails.empty());
}

TEST_F(FeedbackTest, FailsWithoutAMessage) {
  Handles::instance().refusesMessages = true;
  expectFailure("Failed to create Message object instance.");
}

TEST_F(FeedbackTest, FailsWithoutARoot) {
  Handles::instance().makesRootlessMessages = true;
  expectFailure("Cannot retrieve root Entity from the composing notification message.");
}

TEST_F(FeedbackTest, FailsWhenItsMailboxIsRefused) {
  prepare([](fakes::Message& mail) {
    mail.facts().refusedRecipient = ActPackwatch::feedbackAddress();
  });
  expectFailure(
      "Failed to set recipient address(es) into notification message, length 26 byte(s).");
}

TEST_F(FeedbackTest, FailsWithoutAnEnvelope) {
  prepare([](fakes::Message& mail) { mail.facts().hasSession = false; });
  expectFailure("Invalid session information in notification message.");
}

TEST_F(FeedbackTest, FailsWhenTheEntityCannotBeInserted) {
  prepare([](fakes::Message& mail) { mail.root()->facts().childAnswer = 10; });
  expectFailure("Insert child entity failed:10");
}

TEST_F(FeedbackTest, TriesEveryEntity) {
  int made = 0;
  prepare(
      [&made](fakes::Message& mail) { mail.root()->facts().childAnswer = ++made == 1 ? 10 : 0; });
  marked(mark(1, first) + ";" + mark(2, second));
  EXPECT_FALSE(take());
  EXPECT_EQ(log.takeLines(1), Texts{"Insert child entity failed:10"});
  ASSERT_EQ(catcher.mails.size(), 1u);
  EXPECT_EQ(catcher.mails[0].content, Texts{"child second -1"});
}

TEST_F(FeedbackTest, DoesNotAskWhatBecomesOfItsMail) {
  catcher.answer(17, -1);
  marked(mark(1, first));
  EXPECT_TRUE(take());
  EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(FeedbackTest, HasNoSettings) {
  EXPECT_TRUE(action.construct(nullptr, 0));
  EXPECT_TRUE(action.construct("anything", 8));
  EXPECT_EQ(action.serialize(), "");
  uiPackwatch settings;
  EXPECT_TRUE(settings.construct("anything", 8));
  EXPECT_EQ(settings.serialize(), "");
}

}  // namespace
