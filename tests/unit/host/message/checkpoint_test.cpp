// Going back to how a message stood.
#include "host/message/checkpoint.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "library/platform/msgu.h"
#include "library/platform/ov_msg_header.h"
#include "tests/fakes/allocator.h"
#include "tests/fakes/fault_plan.h"
#include "tests/unit/host/message/support/mail.h"

namespace message_test {
namespace {

using host::message::Checkpoint;
using host::message::Entity;
using host::message::Message;

const char* const kMails[] = {
    "From: a@example.com\nSubject: one\nSubject: two\nMIME-Version: 1.0\n"
    "Content-Type: multipart/mixed; boundary=\"b\"\n\npreamble\n"
    "--b\nContent-Type: text/plain\n\ntext\n"
    "--b\nContent-Type: image/png; name=p.png\nContent-Disposition: attachment\n\nPNG\n"
    "--b\nContent-Type: message/rfc822\n\nSubject: inner\n\ninner text\n"
    "--b--\nepilogue\n",
    "Subject: plain\r\nX-Flag: a\r\n\r\nbody\r\nof two lines",
    "Subject: one file\nContent-Type: application/pdf; name=a.pdf\n\nPDF\n",
    "Content-Type: multipart/digest; boundary=b\n\n--b\n\nSubject: 1\n\nx\n--b\n\n--b--\n",
    "Subject: no blank line\n",
    "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: multipart/alternative; "
    "boundary=c\n\n--c\n\nplain\n--c\nContent-Type: text/html\n\n<p>html</p>\n--c--\n--b--\n"};

/// One kind of change. It may find nothing to do.
struct Edit {
  const char* name;
  std::function<void(Message&)> run;
};

Entity* last(Message& message) {
  Entity* entity = message.firstEntity();
  while (entity->nextEntity() != nullptr) entity = entity->nextEntity();
  return entity;
}

const std::vector<Edit>& edits() {
  static const std::vector<Edit> kEdits = {
      {"look", [](Message& m) { m.firstEntity()->headerCount(); }},
      {"add a field",
       [](Message& m) { m.firstEntity()->addHeader(-1, "X-New", "n\xC3\xA4w", "utf-8"); }},
      {"add a field in front",
       [](Message& m) { m.firstEntity()->addHeader(0, "X-F", "1", nullptr); }},
      {"set", [](Message& m) { msgu::setHeader(m.firstEntity(), "Subject", "set", nullptr); }},
      {"set another",
       [](Message& m) { msgu::setHeader(m.firstEntity(), "Subject", "y", nullptr); }},
      {"set back", [](Message& m) { msgu::setHeader(m.firstEntity(), "Subject", "one", nullptr); }},
      {"set deep", [](Message& m) { msgu::setHeader(last(m), "Subject", "deep", nullptr); }},
      {"remove by name", [](Message& m) { m.firstEntity()->removeHeader("Subject"); }},
      {"remove by place", [](Message& m) { m.firstEntity()->removeHeaderAt(0); }},
      {"stamp",
       [](Message& m) {
         m.insertText(OvMsgInsertPlace::End, Resource("stamp"), 20, "utf-8", nullptr);
       }},
      {"stamp on top",
       [](Message& m) {
         m.insertText(OvMsgInsertPlace::Top, Resource("top"), 20, "utf-8", nullptr);
       }},
      {"remove a part", [](Message& m) { msgu::removeEntityAndDummyParent(at(m, "1.2"), ""); }},
      {"remove the last", [](Message& m) { msgu::removeEntityAndDummyParent(last(m), ""); }},
      {"empty", [](Message& m) { msgu::removeRootEntity(m.firstEntity(), "utf-8"); }},
      {"replace all",
       [](Message& m) {
         m.firstEntity()->setContent(Resource("all"), "text/plain", "utf-8", "7bit");
       }},
      {"replace a part",
       [](Message& m) {
         last(m)->setContent(Resource("\xE9"), "text/plain", "iso-8859-1", "base64");
       }},
      {"attach",
       [](Message& m) {
         m.firstEntity()->attachMessage(mail("Subject: other\n\n--b\n").get(), -1);
       }},
      {"add recipient", [](Message& m) { msgu::setRcpt(&m, "new@example.com", true); }},
      {"other recipients", [](Message& m) { msgu::setRcpt(&m, "other@example.com", false); }},
      {"other sender", [](Message& m) {
         auto envelope = m.envelope();
         envelope.sender = "else@example.com";
         m.setEnvelope(envelope);
       }}};
  return kEdits;
}

std::unique_ptr<Message> parsed(const char* bytes) {
  auto message = mail(bytes);
  message->setEnvelope({"s@example.com", {"r@example.com", "q@example.com"}, {}});
  return message;
}

/// Everything that can be seen of a message, with the boundaries that are made at random masked.
std::string look(Message& message) {
  std::string text = std::regex_replace(message.toString(), std::regex("=_[-0-9A-Za-z]+"), "=_");
  text += message.changed() ? "\nchanged" : "\nas received";
  text += "\nfrom " + message.envelope().sender.value_or("nobody");
  for (const std::string& recipient : message.envelope().recipients) text += " to " + recipient;
  for (Entity* entity = message.firstEntity(); entity != nullptr; entity = entity->nextEntity()) {
    text += "\n" + entity->path() + " " + entity->contentType() + " " +
            std::to_string(entity->headerCount());
    EXPECT_TRUE(message.contains(entity));
    EXPECT_TRUE(entity->isAttached());
  }
  return text;
}

std::vector<const Entity*> entitiesOf(const Message& message) {
  std::vector<const Entity*> entities;
  for (const Entity* e = message.firstEntity(); e != nullptr; e = e->next()) entities.push_back(e);
  return entities;
}

TEST(CheckpointRestore, LeavesNoTraceOfAnyChangeBetweenAnyOthers) {
  for (const char* bytes : kMails) {
    for (const Edit& before : edits()) {
      for (const Edit& inside : edits()) {
        auto message = parsed(bytes);
        auto never = parsed(bytes);
        before.run(*message);
        before.run(*never);
        const std::vector<const Entity*> entities = entitiesOf(*message);
        Checkpoint checkpoint(*message);
        inside.run(*message);
        const std::vector<const Entity*> meanwhile = entitiesOf(*message);
        checkpoint.restore();
        ASSERT_EQ(look(*message), look(*never)) << before.name << ", " << inside.name;
        ASSERT_EQ(entitiesOf(*message), entities) << before.name << ", " << inside.name;
        for (const Entity* entity : meanwhile) {
          const bool isOld = std::count(entities.begin(), entities.end(), entity) != 0;
          ASSERT_EQ(message->contains(entity), isOld) << before.name << ", " << inside.name;
        }
      }
    }
  }
}

TEST(CheckpointRestore, LeavesAMessageThatCanBeChangedAsBefore) {
  for (const char* bytes : kMails) {
    for (const Edit& inside : edits()) {
      for (const Edit& after : edits()) {
        auto message = parsed(bytes);
        auto never = parsed(bytes);
        Checkpoint checkpoint(*message);
        inside.run(*message);
        checkpoint.restore();
        after.run(*message);
        after.run(*never);
        ASSERT_EQ(look(*message), look(*never)) << inside.name << ", " << after.name;
      }
    }
  }
}

TEST(CheckpointRestore, TakesBackEveryChangeAtOnceAndMoreThanOnce) {
  for (const char* bytes : kMails) {
    auto message = parsed(bytes);
    const std::string before = look(*message);
    for (int round = 0; round < 3; ++round) {
      Checkpoint checkpoint(*message);
      for (const Edit& edit : edits()) edit.run(*message);
      ASSERT_NE(look(*message), before);
      checkpoint.restore();
      ASSERT_EQ(look(*message), before);
    }
    EXPECT_EQ(message->toString(), bytes);
    EXPECT_FALSE(message->changed());
    EXPECT_EQ(message->received().toString(), bytes);
  }
}

TEST(CheckpointRestore, GoesBackFromOneWithinAnother) {
  auto message = parsed(kMails[0]);
  const std::string first = look(*message);
  Checkpoint outer(*message);
  edits()[1].run(*message);
  const std::string second = look(*message);
  Checkpoint inner(*message);
  edits()[9].run(*message);
  inner.restore();
  EXPECT_EQ(look(*message), second);
  outer.restore();
  EXPECT_EQ(look(*message), first);
}

TEST(CheckpointRestore, ChangesNothingWithoutACall) {
  auto message = parsed(kMails[0]);
  auto never = parsed(kMails[0]);
  {
    const Checkpoint checkpoint(*message);
    edits()[1].run(*message);
    edits()[1].run(*never);
  }
  EXPECT_EQ(look(*message), look(*never));
}

TEST(CheckpointRestore, TakesAMessageWithoutAnEntity) {
  auto message = mail("");
  Checkpoint checkpoint(*message);
  message->setEnvelope({"s@example.com", {}, {}});
  checkpoint.restore();
  EXPECT_EQ(message->toString(), "");
  EXPECT_FALSE(message->hasEnvelope());
}

TEST(CheckpointRestore, NeedsNoMemory) {
  auto message = parsed(kMails[0]);
  const std::string before = look(*message);
  Checkpoint checkpoint(*message);
  for (const Edit& edit : edits()) edit.run(*message);
  bool fired = false;
  {
    const fakes::FaultPlan plan(fakes::FaultKind::Allocation, 1);
    checkpoint.restore();
    fired = plan.fired();
  }
  EXPECT_FALSE(fired);
  EXPECT_EQ(look(*message), before);
}

TEST(CheckpointRestore, IsLeftOutWhenThereIsNoMemoryToKeepIt) {
  for (unsigned n = 1;; ++n) {
    ASSERT_LT(n, 1000u);
    auto message = parsed(kMails[0]);
    for (const Edit& edit : edits()) edit.run(*message);
    const std::string before = look(*message);
    bool kept = false;
    {
      const fakes::FaultPlan plan(fakes::FaultKind::Allocation, n);
      try {
        const Checkpoint checkpoint(*message);
        kept = true;
      } catch (const std::bad_alloc&) {
      }
    }
    EXPECT_EQ(look(*message), before) << n;
    if (kept) return;
  }
}

}  // namespace
}  // namespace message_test
