// Message utilities, signatures, small text operations.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <list>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/message/facts.h"
#include "host/message/message_id.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_header.h"
#include "library/platform/text_utils.h"
#include "tests/unit/host/message/support/mail.h"

namespace message_test {
namespace {

using host::message::Buffer;
using host::message::Entity;
using host::message::Message;

TEST(GetCharset, IsThatOfTheFirstTextThatDeclaresOne) {
  const std::pair<const char*, const char*> cases[] = {
      {"Content-Type: text/plain; charset=\"ISO-8859-1\"\n\n", "iso-8859-1"},
      {"Subject: s\n\n", nullptr},
      {"Content-Type: image/png; charset=x\n\n", nullptr},
      {"Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: text/plain\n\nx\n"
       "--b\nContent-Type: text/html; charset=Big5\n\nx\n--b--\n",
       "big5"},
      {"Content-Type: message/rfc822\n\nContent-Type: text/plain; charset=koi8-r\n\nx\n", nullptr},
      {"Content-Type: text/plain; charset=utf-16\n\n", nullptr},
      {"Content-Type: text/plain; charset=x-nobody-knows\n\n", nullptr},
      {"Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: text/plain; "
       "charset=utf-16le\n"
       "\nx\n--b\nContent-Type: text/html; charset=iso-2022-jp\n\nx\n--b--\n",
       "iso-2022-jp"},
  };
  for (const auto& [bytes, charset] : cases) {
    EXPECT_STREQ(msgu::getCharset(mail(bytes).get()), charset) << bytes;
  }
  EXPECT_EQ(msgu::getCharset(nullptr), nullptr);
}

TEST(GetSubject, ReadsBytesInTheCharsetsGiven) {
  const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
      {"plain", nullptr, nullptr, "plain"},
      {"=?iso-2022-jp?B?GyRCJUYlOSVIGyhC?= x", nullptr, nullptr,
       "\xE3\x83\x86\xE3\x82\xB9\xE3\x83\x88 x"},
      {"caf\xE9", "iso-8859-1", nullptr, "caf\xC3\xA9"},
      {"\x83\x65\x83\x58", "iso-8859-1", "shift_jis", "\xE3\x83\x86\xE3\x82\xB9"},
      {"caf\xE9", "iso-8859-1", "utf-8", "caf\xC3\xA9"},
      {"\x1b$B%F%9\x1b(B", "us-ascii", "iso-2022-jp", "\xE3\x83\x86\xE3\x82\xB9"},
      {"caf\xE9", nullptr, nullptr, "caf\xC3\xA9"},
      {"caf\xC3\xA9", "us-ascii", nullptr, "caf\xC3\xA9"},
      {"caf\xE9 =?utf-8?Q?=E2=82=AC?=", "iso-8859-1", nullptr, "caf\xC3\xA9 \xE2\x82\xAC"},
  };
  for (const auto& [value, source, own, expected] : cases) {
    std::string subject;
    EXPECT_TRUE(msgu::getSubject(mail(std::string("Subject: ") + value + "\n\n").get(), source, own,
                                 subject));
    EXPECT_EQ(subject, expected) << value;
  }
  std::string subject = "old";
  EXPECT_FALSE(msgu::getSubject(mail("A: 1\n\n").get(), nullptr, nullptr, subject));
  EXPECT_EQ(subject, "");
  EXPECT_FALSE(msgu::getSubject(nullptr, nullptr, nullptr, subject));
  EXPECT_FALSE(msgu::getSubject(mail("").get(), nullptr, nullptr, subject));
}

TEST(GetHeaders, GivesEveryFieldAsItStands) {
  std::string text;
  EXPECT_TRUE(msgu::getHeaders(mail("From x\nA: 1\r\n 2\nno field\nB: 3\n\nbody").get(), text));
  EXPECT_EQ(text, "A: 1\r\n 2\nno field\nB: 3\n");
  EXPECT_FALSE(msgu::getHeaders(mail("").get(), text));
  EXPECT_FALSE(msgu::getHeaders(nullptr, text));
}

TEST(GetXMailId, GivesTheFieldOrNull) {
  EXPECT_STREQ(msgu::getXMailId(mail("X-MAIL-ID:  42 \n\n").get()), "42");
  EXPECT_EQ(msgu::getXMailId(mail("A: 1\n\n").get()), nullptr);
  EXPECT_EQ(msgu::getXMailId(nullptr), nullptr);
}

TEST(FindContentType, LooksForTypeOrSubtype) {
  auto message = mail(
      "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: Application/MS-TNEF\n\nx\n"
      "--b\nContent-Type: message/rfc822\n\nContent-Type: application/ms-tnef\n\ny\n--b--\n");
  const std::tuple<const char*, bool, std::size_t> cases[] = {{"ms-tnef", true, 2},
                                                              {"ms-tnef", false, 1},
                                                              {"application/ms-tnef", true, 2},
                                                              {"APPLICATION/ms-tnef", false, 1},
                                                              {"text/ms-tnef", true, 0},
                                                              {"tnef", true, 0}};
  for (const auto& [type, nested, count] : cases) {
    std::list<OvMsgEntity*> found;
    EXPECT_TRUE(msgu::findContentType(message.get(), type, found, nested));
    EXPECT_EQ(found.size(), count) << type;
  }
  std::list<OvMsgEntity*> found;
  EXPECT_FALSE(msgu::findContentType(nullptr, "ms-tnef", found, true));
  EXPECT_FALSE(msgu::findContentType(message.get(), nullptr, found, true));
}

TEST(IsBody, MeansInlineTextsWithoutName) {
  auto message = mail(
      "Content-Type: multipart/mixed; boundary=b\n\n"
      "--b\nContent-Type: multipart/alternative; boundary=c\n\n--c\n\nplain\n"
      "--c\nContent-Type: text/html\n\nhtml\n--c--\n"
      "--b\nContent-Type: text/plain; name=a.txt\n\nattached\n"
      "--b\nContent-Type: text/plain\nContent-Disposition: attachment\n\nattached\n"
      "--b\nContent-Type: image/png\n\nimage\n"
      "--b\nContent-Type: message/rfc822\n\nSubject: in\n\ninner\n--b--\n");
  std::string bodies;
  for (Entity* entity = message->firstEntity(); entity != nullptr; entity = entity->nextEntity()) {
    if (msgu::isBody(message.get(), entity)) bodies += entity->path() + " ";
  }
  EXPECT_EQ(bodies, "1.1.1 1.1.2 ");
  EXPECT_FALSE(msgu::isBody(message.get(), nullptr));
  EXPECT_FALSE(msgu::isBody(message.get(), mail("A: 1\n\n")->firstEntity()));
}

TEST(IsBody, MeansTheOnlyTextWhateverItsName) {
  const std::pair<const char*, bool> cases[] = {
      {"Content-Type: text/plain; name=a.txt\n\nx\n", true},
      {"Content-Type: text/html\nContent-Disposition: inline; filename=a.html\n\nx\n", true},
      {"Content-Type: text/plain\nContent-Disposition: attachment; filename=a.txt\n\nx\n", false},
      {"Content-Type: text/csv; name=a.csv\n\nx\n", false},
  };
  for (const auto& [bytes, isBody] : cases) {
    const auto message = mail(bytes);
    EXPECT_EQ(msgu::isBody(message.get(), message->firstEntity()), isBody) << bytes;
  }
  const auto message = mail(
      "Content-Type: multipart/alternative; boundary=b\n\n"
      "--b\nContent-Type: text/html; name=mail.html\n\nx\n"
      "--b\nContent-Type: text/calendar; name=invite.ics\n\nx\n--b--\n");
  OvMsgEntity* const html = message->firstEntity()->nextEntity();
  EXPECT_TRUE(msgu::isBody(message.get(), html));
  EXPECT_FALSE(msgu::isBody(message.get(), html->nextEntity()));
}

struct Signature {
  const char* bytes;
  bool smime;
  bool pgp;
};

TEST(Signatures, AreRecognised) {
  const Signature cases[] = {
      {"Content-Type: multipart/signed; protocol=\"application/pkcs7-signature\"; boundary=b\n\n"
       "--b\n\nx\n--b--\n",
       true, false},
      {"Content-Type: multipart/signed; protocol=\"application/x-pkcs7-signature\"; boundary=b\n\n"
       "--b\n\nx\n--b--\n",
       true, false},
      {"Content-Type: multipart/signed; boundary=b\n\n--b\n\nx\n"
       "--b\nContent-Type: application/pkcs7-signature\n\ny\n--b--\n",
       true, false},
      {"Content-Type: application/pkcs7-mime; smime-type=signed-data\n\nx", true, false},
      {"Content-Type: application/x-pkcs7-mime; smime-type=Signed-Data\n\nx", true, false},
      {"Content-Type: application/pkcs7-mime; smime-type=enveloped-data\n\nx", false, false},
      {"Content-Type: application/pkcs7-mime\n\nx", false, false},
      {"Content-Type: multipart/signed; protocol=application/pgp-signature; boundary=b\n\n"
       "--b\n\nx\n--b--\n",
       false, true},
      {"Subject: s\n\n-----BEGIN PGP SIGNED MESSAGE-----\nHash: SHA256\n\nx\n"
       "-----BEGIN PGP SIGNATURE-----\n\ny\n-----END PGP SIGNATURE-----\n",
       false, true},
      {"Content-Transfer-Encoding: base64\n\n"
       "LS0tLS1CRUdJTiBQR1AgU0lHTkVEIE1FU1NBR0UtLS0tLQoKeAotLS0tLUJFR0lOIFBHUCBTSUdOQVRVUkUt\n"
       "LS0tLQo=\n",
       false, true},
      {"Subject: s\n\n> -----BEGIN PGP SIGNED MESSAGE-----\n> -----BEGIN PGP SIGNATURE-----\n",
       false, false},
      {"Subject: s\n\n-----BEGIN PGP SIGNED MESSAGE-----\nno signature\n", false, false},
      {"Content-Type: multipart/mixed; boundary=o\n\n--o\n"
       "Content-Type: multipart/signed; protocol=application/pgp-signature; boundary=b\n\n"
       "--b\n\nx\n--b--\n--o--\n",
       false, true},
      {"Content-Type: message/rfc822\n\nContent-Type: multipart/signed; "
       "protocol=application/pgp-signature; boundary=b\n\n--b\n\nx\n--b--\n",
       false, false},
      {"", false, false},
      {"Subject: s\n\nx", false, false},
  };
  for (const Signature& one : cases) {
    EXPECT_EQ(mail(one.bytes)->isSmimeSigned(), one.smime) << one.bytes;
    EXPECT_EQ(mail(one.bytes)->isPgpSigned(), one.pgp) << one.bytes;
  }
}

TEST(MessageId, IsWithinItsFormAndNeverRepeats) {
  std::set<std::string> ids;
  std::vector<std::vector<std::string>> made(4);
  std::vector<std::thread> threads;
  for (auto& own : made) {
    threads.emplace_back([&own] {
      for (int i = 0; i < 5000; ++i) own.push_back(host::message::newMessageId());
    });
  }
  for (auto& thread : threads) thread.join();
  for (const auto& own : made) ids.insert(own.begin(), own.end());
  EXPECT_EQ(ids.size(), 20000u);
  std::set<char> firsts;
  for (const std::string& id : ids) {
    EXPECT_GE(id.size(), 16u);
    EXPECT_LE(id.size(), 36u);
    EXPECT_EQ(id.find_first_not_of("0123456789abcdefghijklmnopqrstuvwxyz"), std::string::npos);
    firsts.insert(id[0]);
  }
  EXPECT_EQ(firsts.size(), 36u);
}

TEST(Message, IsReadByManyThreadsAtOnce) {
  const auto bytes = Buffer::copyOf(
      "Subject: =?iso-2022-jp?B?GyRCJUYlOSVIGyhC?=\nFrom: A <a@example.com>\n"
      "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Transfer-Encoding: base64\n\n"
      "SGVsbG8=\n--b--\n");
  std::vector<std::thread> threads;
  std::atomic<int> good = 0;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int k = 0; k < 50; ++k) {
        auto message = Message::parse(bytes);
        const auto subject = host::message::decodedSubject(*message);
        if (subject == "\xE3\x83\x86\xE3\x82\xB9\xE3\x83\x88" &&
            at(*message, "1.1")->decodedContent() == "Hello") {
          ++good;
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(good, 200);
}

TEST(Sink, ThatRefusesEndsTheRendering) {
  class Refusing final : public OvMsgSink {
   public:
    bool write(const char*, std::size_t) override { return ++calls < 2; }
    int calls = 0;
  };
  auto message = mail("A: 1\n\nbody");
  Refusing sink;
  EXPECT_EQ(message->render(sink), OVMSGERR::Ok);
  msgu::setHeader(message->firstEntity(), "B", "2", nullptr);
  Refusing second;
  EXPECT_EQ(message->render(second), OVMSGERR::WriteFailed);
  EXPECT_EQ(second.calls, 2);
  Refusing third;
  third.calls = 1;
  EXPECT_EQ(mail("no header")->render(third), OVMSGERR::WriteFailed);
}

TEST(Rendering, HandsOutTheReceivedBytesThemselves) {
  class Remembering final : public OvMsgSink {
   public:
    bool write(const char* data, std::size_t size) override {
      pieces.emplace_back(data, size);
      return true;
    }
    std::vector<std::string_view> pieces;
  };
  const auto bytes = Buffer::copyOf("A: 1\n\n" + std::string(100000, 'x'));
  auto message = Message::parse(bytes);
  Remembering whole;
  message->render(whole);
  ASSERT_EQ(whole.pieces.size(), 1u);
  EXPECT_EQ(whole.pieces[0].data(), bytes->data());
  msgu::setHeader(message->firstEntity(), "B", "2", nullptr);
  Remembering edited;
  message->render(edited);
  ASSERT_EQ(edited.pieces.size(), 3u);
  EXPECT_EQ(edited.pieces[2].data(), bytes->data() + 5) << "the body is not copied";
}

TEST(I2A, HasATextForEveryCode) {
  std::set<std::string> texts;
  for (int code = 0; code <= OVMSGERR::LimitExceeded; ++code) texts.insert(OVMSGERR::I2A(code));
  EXPECT_EQ(texts.size(), static_cast<std::size_t>(OVMSGERR::LimitExceeded) + 1);
  EXPECT_STREQ(OVMSGERR::I2A(-1), "unknown error");
  EXPECT_STREQ(OVMSGERR::I2A(9999), "unknown error");
}

TEST(ResourceLocator, CopiesItsBytes) {
  std::string bytes("a\0b", 3);
  OvMsgResourceLocator* locator = OvMsg_CreateResourceLocator(bytes.data(), 1, 3, 3, 1);
  ASSERT_NE(locator, nullptr);
  bytes = "xyz";
  EXPECT_EQ(std::string(locator->data(), locator->size()), std::string("a\0b", 3));
  OvMsg_DeleteResourceLocator(locator);
  OvMsg_DeleteResourceLocator(nullptr);
  EXPECT_EQ(OvMsg_CreateResourceLocator("x", 2, 1, 1, 1), nullptr);
  EXPECT_EQ(OvMsg_CreateResourceLocator("x", 1, 2, 1, 1), nullptr);
  EXPECT_EQ(OvMsg_CreateResourceLocator(nullptr, 1, 1, 1, 1), nullptr);
}

TEST(Tokenize, DropsEmptyParts) {
  std::vector<std::string> parts{"kept"};
  tokenize(";;a;b c;;d;", parts, ';');
  EXPECT_EQ(parts, (std::vector<std::string>{"kept", "a", "b c", "d"}));
  tokenize("", parts, ';');
  EXPECT_EQ(parts.size(), 4u);
}

TEST(Icasencmp, ComparesWithoutCase) {
  EXPECT_EQ(platform_icasencmp("ABC", "abc", 3), 0);
  EXPECT_EQ(platform_icasencmp("ABCx", "abcy", 3), 0);
  EXPECT_LT(platform_icasencmp("ab", "abc", 3), 0);
  EXPECT_GT(platform_icasencmp("abd", "abC", 3), 0);
  EXPECT_EQ(platform_icasencmp("a", "b", 0), 0);
  EXPECT_EQ(platform_icasencmp("ab", "AB", 99), 0);
  EXPECT_LT(platform_icasencmp("a", "\xE9", 1), 0);
}

TEST(ReformatSpecialToken, MakesOneLineOfAList) {
  Kavi::TokenMap<Kavi::ScanToken> tokens;
  ReformatSpecialToken(tokens, Kavi::ScanToken::FileName);
  EXPECT_TRUE(tokens.empty());
  tokens.set(Kavi::ScanToken::FileName, "a.exe\r\nb.exe\n\n c.exe \n");
  ReformatSpecialToken(tokens, Kavi::ScanToken::FileName);
  EXPECT_EQ(*tokens.find(Kavi::ScanToken::FileName), "a.exe, b.exe, c.exe");
  ReformatSpecialToken(tokens, Kavi::ScanToken::FileName);
  EXPECT_EQ(*tokens.find(Kavi::ScanToken::FileName), "a.exe, b.exe, c.exe");
}

TEST(Buffer, ReadsFilesAndSaysWhyNot) {
  std::string error;
  EXPECT_EQ(Buffer::readFile("/nonexistent/mail.eml", error), nullptr);
  EXPECT_NE(error.find("/nonexistent/mail.eml: "), std::string::npos);
  const std::string path = ::testing::TempDir() + "kavi_message_buffer_test.eml";
  const std::string bytes = "A: 1\n\n" + std::string(200000, 'x');
  std::ofstream(path, std::ios::binary) << bytes;
  const auto buffer = Buffer::readFile(path, error);
  std::remove(path.c_str());
  ASSERT_NE(buffer, nullptr) << error;
  EXPECT_EQ(buffer->view(), bytes);
}

}  // namespace
}  // namespace message_test
