// Whole messages through the real adapter: what is stored is the message byte for byte, and what
// is sent differs by SMTP's own rules and the documented fields only. On generated messages that
// are hard to take apart, and on those of a folder that KAVI_MAIL_DIR names.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/delivery/reprocess_fields.h"
#include "library/platform/msgu.h"
#include "tests/e2e/smtp/smtp_test.h"
#include "tests/e2e/smtp/submission_test.h"
#include "tests/unit/host/delivery/filing_bench.h"
#include "tests/unit/host/message/support/mail.h"
#include "tests/unit/host/message/support/mail_corpus.h"
#include "tests/unit/host/message/support/torture.h"

namespace {

using namespace host::delivery;
using host::message::Message;
using host::store::IndexEntry;
using host::store::MessageKind;
using Kavi::ScanToken;
using testing_host::asReceived;
using testing_host::contentOf;
using testing_host::SmtpSink;

struct Sample {
  std::string name;
  std::string bytes;
};

std::vector<Sample> samples() {
  std::vector<Sample> all;
  for (message_test::Torture& torture : message_test::smallTortures()) {
    all.push_back({std::move(torture.name), std::move(torture.bytes)});
  }
  for (message_test::CorpusMail& mail : message_test::corpusMails()) {
    all.push_back({mail.path.string(), std::move(mail.bytes)});
  }
  return all;
}

// What a server gets, without the fields that the gateway wrote.
std::string withoutOurFields(const std::string& received) {
  std::string rest;
  for (std::size_t at = 0; at < received.size();) {
    const std::size_t end = std::min(received.find('\n', at), received.size() - 1) + 1;
    if (received.compare(at, 17, "X-kavi-reprocess-") != 0) rest.append(received, at, end - at);
    at = end;
  }
  return rest;
}

class EveryMail : public ::testing::Test {
 protected:
  EveryMail() {
    EXPECT_EQ(state_.open(temp_ / "state"), AdapterError::None);
    std::filesystem::create_directory(folder_);
    settings_.helloName = "gateway.example.org";
    settings_.scan = scanning_.destination();
    settings_.plain = plain_.destination();
  }

  // Has `act` work on each message, and `check` look at what came of it.
  template <class Act, class Check>
  void each(Act act, Check check) {
    for (const Sample& sample : samples()) {
      SCOPED_TRACE(sample.name);
      const auto message = message_test::mail(sample.bytes);
      message->setEnvelope({"sender@example.org", {"a@example.com", "b@example.com"}, {}});
      Kavi::TokenMap<ScanToken> tokens;
      tokens.set(ScanToken::RuleId, "15");
      tokens.set(ScanToken::QuarantineArea, "virus");
      tokens.set(ScanToken::QuarantineAgingDays, "30");
      tokens.set(ScanToken::ArchiveAgingDays, "");
      LocalAdapter adapter(state_, &settings_, &log_);
      ASSERT_EQ(adapter.beginMessage(*message, message->receivedBytes(), tokens),
                AdapterError::None);
      ASSERT_EQ(adapter.beginAction(15, 0, "1-7"), AdapterError::None);
      ASSERT_NO_FATAL_FAILURE(act(adapter, *message));
      EXPECT_FALSE(message->changed());
      ASSERT_NO_FATAL_FAILURE(check(sample, *message));
      EXPECT_EQ(adapter.finalAnswer(FinalAnswer::Accepted), AdapterError::None);
      ++count_;
    }
    RecordProperty("messages", static_cast<int>(count_));
    EXPECT_GT(count_, 0u);
    EXPECT_THAT(log_.takeLines(1), ::testing::IsEmpty());
  }

  void submit() {
    SubmissionWorker worker(state_.spool(), settings_, keys_, &log_);
    ASSERT_EQ(worker.runOnce(std::time(nullptr) + 1).sent, 1u);
  }

  // The only row of the message, and what has to be in it.
  IndexEntry rowOf(const Message& message, const std::string& bytes) {
    std::vector<IndexEntry> rows;
    EXPECT_TRUE(state_.store()->findMessage(message.id(), rows).ok());
    EXPECT_EQ(rows.size(), 1u);
    if (rows.empty()) return {};
    const IndexEntry& row = rows.front();
    EXPECT_EQ(row.rule, "15");
    EXPECT_EQ(row.sender, "sender@example.org");
    EXPECT_THAT(row.recipients, ::testing::ElementsAre("a@example.com", "b@example.com"));
    EXPECT_EQ(row.size, bytes.size());
    std::string subject;
    msgu::getSubject(const_cast<Message*>(&message), nullptr, nullptr, subject);
    EXPECT_EQ(row.subject, subject);
    EXPECT_TRUE(contentOf(row.path) == bytes) << row.path;
    return row;
  }

  testing_host::TempFolder temp_;
  std::string folder_ = temp_ / "filed";
  SmtpSink scanning_{R"({"offers": ["8BITMIME", "DSN", "SIZE 0"]})"};
  SmtpSink plain_;
  DeliveryState state_;
  DeliverySettings settings_;
  SealKeys keys_{temp_ / "keys"};
  fakes::CapturingLog log_;
  std::size_t count_ = 0;
};

TEST_F(EveryMail, IsQuarantinedByteForByte) {
  std::string path;
  each(
      [&](LocalAdapter& adapter, Message& message) {
        const testing_host::Answer answer = testing_host::quarantine(adapter, message, folder_);
        ASSERT_TRUE(answer.ok());
        path = answer.path;
      },
      [&](const Sample& sample, const Message& message) {
        const IndexEntry row = rowOf(message, sample.bytes);
        const std::string id = message.id();
        EXPECT_EQ(path, folder_ + "/" + id[0] + "/" + id[1] + "/" + id + ".DF");
        EXPECT_EQ(row.path, path);
        EXPECT_EQ(row.kind, MessageKind::Quarantined);
        EXPECT_EQ(row.area, "virus");
        EXPECT_EQ(row.agingDays, 30u);
      });
}

TEST_F(EveryMail, IsArchivedByteForByte) {
  each(
      [&](LocalAdapter& adapter, Message& message) {
        ASSERT_TRUE(testing_host::archive(adapter, message, folder_, "sales").ok());
      },
      [&](const Sample& sample, const Message& message) {
        const IndexEntry row = rowOf(message, sample.bytes);
        EXPECT_EQ(row.path, folder_ + "/sales/" + message.id() + ".eml");
        EXPECT_EQ(row.kind, MessageKind::Archived);
        EXPECT_EQ(row.area, "sales");
        EXPECT_EQ(row.agingDays, std::nullopt);
      });
}

TEST_F(EveryMail, IsHandedOffWhole) {
  each(
      [&](LocalAdapter& adapter, Message& message) {
        unsigned int error = 99;
        ASSERT_EQ(adapter.handoffMessage(error, &message, "127.0.0.1", scanning_.port()), 0);
      },
      [&](const Sample& sample, const Message&) {
        EXPECT_TRUE(scanning_.lastMessage() == asReceived(sample.bytes));
      });
  EXPECT_EQ(scanning_.messages().size(), count_);
  EXPECT_EQ(scanning_.connections(), 1u);
}

TEST_F(EveryMail, IsDeliveredWhole) {
  each(
      [&](LocalAdapter& adapter, Message& message) {
        unsigned int error = 99;
        ASSERT_EQ(adapter.deliverMessage(error, &message), 0);
        submit();
      },
      [&](const Sample& sample, const Message&) {
        EXPECT_TRUE(plain_.lastMessage() == asReceived(sample.bytes));
      });
  EXPECT_EQ(plain_.messages().size(), count_);
}

TEST_F(EveryMail, IsSentBackWithOurFieldsAndNothingElse) {
  std::size_t sealed = 0;
  each(
      [&](LocalAdapter& adapter, Message& message) {
        OvMsgEntity* root = msgu::getRootEntity(&message);
        msgu::setHeader(root, kReprocessRules, "15", nullptr);
        msgu::setHeader(root, kReprocessType, "readdress", nullptr);
        unsigned int error = 99;
        ASSERT_EQ(adapter.resendMessage(error, &message, 1), 0);
        submit();
        for (const char* name : {kReprocessRules, kReprocessType}) {
          if (root != nullptr) root->removeHeader(name);
        }
      },
      [&](const Sample& sample, const Message&) {
        const std::string received = scanning_.lastMessage();
        EXPECT_EQ(withoutOurFields(received), asReceived(sample.bytes));
        if (received.find("X-kavi-reprocess-seal: 1 ") != std::string::npos) ++sealed;
      });
  EXPECT_EQ(scanning_.messages().size(), count_);
  EXPECT_GT(sealed, count_ / 2);
  RecordProperty("sealed", static_cast<int>(sealed));
}

}  // namespace
