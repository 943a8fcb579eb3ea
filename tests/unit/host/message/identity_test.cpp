// What nobody changed leaves as it came; a new field is the only difference that it makes.
#include "tests/unit/host/message/support/identity.h"

#include <gtest/gtest.h>

#include "tests/unit/host/message/support/mail_corpus.h"
#include "tests/unit/host/message/support/torture.h"

namespace message_test {
namespace {

TEST(Identity, HoldsForSmallTortures) {
  for (const Torture& torture : smallTortures()) expectIdentity(torture.bytes, torture.name);
}

TEST(Identity, HoldsForLargeTorturesAtATenth) {
  for (const Torture& torture : largeTortures(10)) expectIdentity(torture.bytes, torture.name);
}

TEST(Identity, HoldsForRealMail) {
  const auto mails = corpusMails();
  if (mails.empty()) GTEST_SKIP() << "KAVI_MAIL_DIR names no folder with mails";
  for (const CorpusMail& mail : mails) {
    expectIdentity(mail.bytes, mail.path.string());
    expectIdentity(mail.bytes + "\n", mail.path.string() + " + LF");
    std::string cut = mail.bytes;
    if (cut.ends_with('\n')) cut.pop_back();
    if (cut.ends_with('\r')) cut.pop_back();
    expectIdentity(cut, mail.path.string() + " without newline");
  }
}

}  // namespace
}  // namespace message_test
