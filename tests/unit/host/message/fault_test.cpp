// Every public operation with its n-th allocation failing, for every n: it answers its failure, the
// message stays whole, and nothing leaks or escapes. Allocations inside GLib are not among them: it
// ends the process when one fails.
#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <string>

#include "library/platform/msgu.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_header.h"
#include "library/platform/ov_msg_session_info.h"
#include "library/platform/text_utils.h"
#include "tests/fakes/allocator.h"
#include "tests/fakes/fault_plan.h"
#include "tests/unit/host/message/support/mail.h"

namespace message_test {
namespace {

using host::message::Entity;
using host::message::Message;

const char kMail[] =
    "From: \"A\" <a@example.com>\nSubject: =?iso-8859-1?Q?caf=E9?= and a long tail of words here\n"
    "X-Mail-ID: a rather long identifier of this mail\n"
    "Content-Type: multipart/mixed; boundary=\"a-rather-long-boundary-for-a-part\"\n\n"
    "--a-rather-long-boundary-for-a-part\nContent-Type: text/plain; charset=iso-8859-1\n\ntext\n"
    "--a-rather-long-boundary-for-a-part\nContent-Type: image/png\n"
    "Content-Disposition: attachment; filename=a-rather-long-file-name.png\n\nPNG\n"
    "--a-rather-long-boundary-for-a-part\nContent-Type: message/rfc822\n\nSubject: in\n\nin\n"
    "--a-rather-long-boundary-for-a-part--\n";

/// One operation. \return whether it succeeded.
using Operation = std::function<bool(Message&)>;

void sweep(const char* name, const Operation& operation, const std::string& bytes = kMail) {
  for (unsigned n = 1;; ++n) {
    ASSERT_LT(n, 5000u) << name << " never succeeds";
    auto message = mail(bytes);
    message->setEnvelope({"s@example.com", {"r@example.com"}, {}});
    const std::string before = message->toString();
    bool succeeded = false;
    bool fired = false;
    {
      fakes::FaultPlan plan(fakes::FaultKind::Allocation, n);
      succeeded = operation(*message);
      fired = plan.fired();
    }
    const std::string after = message->toString();
    EXPECT_EQ(after.size(), message->renderedSize()) << name << " " << n;
    if (!succeeded) {
      EXPECT_EQ(after, before) << name << " " << n;
    }
    const auto again = mail(after);
    EXPECT_EQ(again->entityCount(), message->entityCount()) << name << " " << n;
    for (Entity* e = message->firstEntity(); e != nullptr; e = e->nextEntity()) {
      EXPECT_TRUE(message->contains(e)) << name << " " << n;
    }
    if (!fired) {
      EXPECT_TRUE(succeeded) << name;
      return;
    }
  }
}

Entity* part(Message& message, int index) {
  Entity* entity = message.firstEntity();
  for (int i = 0; i < index && entity != nullptr; ++i) entity = entity->nextEntity();
  return entity;
}

TEST(FailedAllocations, LeaveHeaderEditsWhole) {
  const char* text = "a value that is long enough to need memory of its own, caf\xC3\xA9";
  sweep("setHeader",
        [&](Message& m) { return msgu::setHeader(m.firstEntity(), "Subject", text, "utf-8"); });
  sweep("setHeader, new",
        [&](Message& m) { return msgu::setHeader(m.firstEntity(), "X-Flag", text, nullptr); });
  sweep("addHeader",
        [&](Message& m) { return m.firstEntity()->addHeader(1, "X-Flag", text, "utf-8"); });
  sweep("removeHeader", [&](Message& m) { return m.firstEntity()->removeHeader("Subject"); });
  sweep("removeHeaderAt", [&](Message& m) { return m.firstEntity()->removeHeaderAt(1); });
  sweep("setRawValue", [&](Message& m) {
    OvMsgHeader* header = m.firstEntity()->header("Subject");
    return header != nullptr && header->setRawValue(text, nullptr) == 0;
  });
  sweep("setParameter", [&](Message& m) {
    OvMsgHeader* header = part(m, 1)->header("Content-Type");
    return header != nullptr && header->setParameter("charset", "utf-8") == 0;
  });
}

TEST(FailedAllocations, LeaveQuestionsUnanswered) {
  sweep("getHeader", [](Message& m) {
    std::string value;
    return msgu::getHeader(m.firstEntity(), "X-Mail-ID", value);
  });
  sweep("getHeaders", [](Message& m) {
    std::string value;
    return msgu::getHeaders(&m, value);
  });
  sweep("getSubject", [](Message& m) {
    std::string value;
    return msgu::getSubject(&m, "utf-8", nullptr, value);
  });
  sweep("getCharset", [](Message& m) { return msgu::getCharset(&m) != nullptr; });
  sweep("getXMailId", [](Message& m) { return msgu::getXMailId(&m) != nullptr; });
  sweep("findContentType", [](Message& m) {
    std::list<OvMsgEntity*> found;
    return msgu::findContentType(&m, "image/png", found, true);
  });
  sweep("isBody", [](Message& m) { return msgu::isBody(&m, part(m, 1)); });
  sweep("fileName", [](Message& m) { return part(m, 2)->fileName() != nullptr; });
  sweep("decodedValue", [](Message& m) {
    int words = 0;
    OvMsgHeader* header = m.firstEntity()->header("Subject");
    return header != nullptr && header->decodedValue(words) != nullptr;
  });
  sweep("address", [](Message& m) {
    OvMsgHeader* header = m.firstEntity()->header("From");
    return header != nullptr && header->address() != nullptr;
  });
  sweep("rawValue", [](Message& m) {
    OvMsgHeader* header = m.firstEntity()->header("From");
    return header != nullptr && header->rawValue() != nullptr && header->name() != nullptr &&
           header->value() != nullptr;
  });
  sweep("conv", [](Message&) {
    std::string out;
    int error = 0;
    return msgu::conv("a text that is long enough for memory", "utf-8", "koi8-r", out, error,
                      false);
  });
  sweep("genRfc2047", [](Message&) {
    int error = 0;
    char* words = msgu::genRfc2047("caf\xC3\xA9 and more of that kind", "utf-8", error);
    OvMsg_FreeHeaderValue(words);
    return words != nullptr;
  });
}

TEST(FailedAllocations, LeaveEnvelopesWhole) {
  sweep("setRcpt", [](Message& m) {
    const bool done = msgu::setRcpt(&m, "somebody.else@a.rather.long.example.com", false);
    EXPECT_TRUE(done || m.envelope().recipients.front() == "r@example.com");
    return done;
  });
  sweep("getRcpt", [](Message& m) {
    std::string text;
    std::list<std::string> list;
    return msgu::getRcpt(&m, text, list);
  });
  sweep("sessionInfo", [](Message& m) {
    OvMsgMailSessionInfo* session = m.sessionInfo();
    if (session == nullptr) return false;
    const bool done =
        session->setSender("Name of Somebody <somebody.else@a.rather.long.example.com>") == 0 &&
        session->insertRecipient(0, "yet.another.one@a.rather.long.example.com") == 0;
    OvMsg_DeleteSessionInfo(session);
    return done;
  });
}

TEST(FailedAllocations, LeaveTheTreeWhole) {
  const Resource text("a text that is long enough to need memory of its own");
  sweep("setContent", [&](Message& m) {
    return part(m, 2)->setContent(text, "text/plain", "utf-8", "base64") == 0;
  });
  sweep("setContent of the root", [&](Message& m) {
    return m.firstEntity()->setContent(text, "text/plain", "utf-8", "7bit") == 0;
  });
  sweep("insertTextBody", [&](Message& m) {
    return m.firstEntity()->insertTextBody(text, "text/plain", nullptr, "base64") == 0;
  });
  sweep("insertTextBody into a leaf", [&](Message& m) {
    return part(m, 1)->insertTextBody(text, "text/plain", nullptr, "base64") == 0;
  });
  sweep("insertChild",
        [&](Message& m) { return m.firstEntity()->insertChild(part(m, 2), 0) == 0; });
  sweep("insertChild into a leaf",
        [&](Message& m) { return part(m, 1)->insertChild(part(m, 2), -1) == 0; });
  sweep("attachMessage", [&](Message& m) { return m.firstEntity()->attachMessage(&m, -1) == 0; });
  sweep("removeEntityAndDummyParent",
        [](Message& m) { return msgu::removeEntityAndDummyParent(part(m, 2), ""); });
  sweep("removeRootEntity",
        [](Message& m) { return msgu::removeRootEntity(m.firstEntity(), "utf-8"); });
}

TEST(FailedAllocations, LeaveBodiesWhole) {
  const Resource text("a text of some length \xE2\x80\x93\r\nthat ISO-8859-1 cannot carry");
  const auto insert = [&](OvMsgInsertPlace place) {
    return [&text, place](Message& m) {
      return m.insertText(place, text, 20, "utf-8", "iso-2022-jp") == 0;
    };
  };
  sweep("insertText, converting", insert(OvMsgInsertPlace::Top));
  sweep("insertText at the end", insert(OvMsgInsertPlace::End));
  const std::string html =
      "<html><head><meta charset=iso-8859-1></head><body><template></body></template>caf=E9"
      "</body></html>";
  sweep("insertText into alternatives", insert(OvMsgInsertPlace::End),
        "Content-Type: multipart/alternative; boundary=\"a-rather-long-boundary-for-a-part\"\n\n"
        "--a-rather-long-boundary-for-a-part\nContent-Type: text/plain; charset=iso-2022-jp\n\n"
        "\x1b$B5!L)\x1b(B\n"
        "--a-rather-long-boundary-for-a-part\nContent-Type: text/html; charset=iso-8859-1\n"
        "Content-Transfer-Encoding: quoted-printable\n\n" +
            html + "\n--a-rather-long-boundary-for-a-part--\n");
  sweep("insertText beside", insert(OvMsgInsertPlace::Top),
        "Subject: a subject of some length\nContent-Type: application/pdf; name=a-file-name.pdf\n"
        "Content-Transfer-Encoding: base64\n\nQUJD\n");
  sweep("insertText where nothing can be read", insert(OvMsgInsertPlace::End),
        "Content-Type: multipart/mixed; boundary=\"a-rather-long-boundary-for-a-part\"\n\n"
        "--a-rather-long-boundary-for-a-part\nContent-Type: text/plain\n\ncaf\xE9\n"
        "--a-rather-long-boundary-for-a-part--\n");
  OvMsg_SetDisclaimerAttachmentAsDefault(1);
  sweep("insertText as an attachment", insert(OvMsgInsertPlace::Top));
  OvMsg_SetDisclaimerAttachmentAsDefault(0);
}

TEST(FailedAllocations, LeaveNoMessageBehind) {
  const long live = fakes::liveAllocations();
  for (unsigned n = 1;; ++n) {
    OvMsgMailMessage* message = nullptr;
    bool fired = false;
    {
      fakes::FaultPlan plan(fakes::FaultKind::Allocation, n);
      message = OvMsg_CreateMailMessage();
      fired = plan.fired();
    }
    EXPECT_NE(message == nullptr, !fired);
    OvMsg_DeleteMailMessage(message);
    EXPECT_EQ(fakes::liveAllocations(), live);
    if (!fired) break;
  }
}

}  // namespace
}  // namespace message_test
