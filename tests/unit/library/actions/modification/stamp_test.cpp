#include "library/actions/modification/stamp.h"

#include "library/platform/ov_msg_error.h"
#include "tests/unit/library/actions/modification/stamp_test.h"

namespace {

using fakes::LogLines;
using Kavi::ScanToken;

/// A record that only has a type.
class Stranger : public KaviNamedObj {
 public:
  explicit Stranger(unsigned int type) : type_(type) {}
  bool construct(const char* /*setting*/, unsigned int /*length*/) override { return true; }
  std::string serialize() override { return {}; }
  unsigned int getType() const override { return type_; }

 private:
  unsigned int type_;
};

TEST_F(StampTest, InsertsTheTextOfItsRecord) {
  EXPECT_TRUE(take());
  EXPECT_EQ(msg.facts().calls, (Texts{"findContentType ms-tnef nested", "isSmimeSigned",
                                      "isPgpSigned", "insertText 2 20 utf-8 us-ascii 'Stamp'"}));
  EXPECT_EQ(locators(), (Texts{"create 1 5 5 1", "delete"}));
  EXPECT_EQ(log.takeLines(), (LogLines{{3, "PreferCharset has been set to us-ascii"}}));
  EXPECT_TRUE(adapter.calls().empty());
}

TEST_F(StampTest, LeavesTheFlagAlone) {
  for (const bool before : {false, true}) {
    flag = before;
    EXPECT_TRUE(take());
    EXPECT_EQ(flag, before);
  }
}

TEST_F(StampTest, StampsWithItsFirstIdOnly) {
  namedObjects.set(9, nullptr);
  EXPECT_TRUE(take());
  EXPECT_EQ(insertions(), Texts{"2 20 utf-8 us-ascii 'Stamp'"});
}

TEST_F(StampTest, OnlyPositionOneIsTheTop) {
  for (const unsigned int position : {1u, 2u, 3u, 0u, 4294967294u}) {
    stamp.insertPosition = position;
    EXPECT_TRUE(take());
    EXPECT_EQ(insertions(),
              Texts{(position == 1 ? "1" : "2") + std::string(" 20 utf-8 us-ascii 'Stamp'")});
  }
}

TEST_F(StampTest, FailsUnloggedWithoutIds) {
  ActStamp bare;
  EXPECT_FALSE(LibraryTest::take(bare, &msg, flag));
  EXPECT_TRUE(log.takeLines().empty());
  EXPECT_TRUE(msg.facts().calls.empty());
}

TEST_F(StampTest, RefusesAnIdWithoutARecord) {
  namedObjects.set(7, nullptr);
  EXPECT_FALSE(take());
  NamedObjMgrForScanner none;
  EXPECT_FALSE(action.takeAction(&msg, nullptr, flag, tokens, adapter, none));
  EXPECT_EQ(log.takeLines(), (LogLines{{1, "Invalid name object type reference. id=7"},
                                       {1, "Invalid name object type reference. id=7"}}));
}

TEST_F(StampTest, RefusesARecordThatIsNoStamp) {
  for (const unsigned int type : {1u, 3u, 4u, 4294967295u}) {
    Stranger stranger(type);
    namedObjects.set(7, &stranger);
    EXPECT_FALSE(take());
    EXPECT_EQ(
        log.takeLines(),
        (LogLines{{1, "Incorrect name object type reference. type=" + std::to_string(type)}}));
  }
  EXPECT_TRUE(msg.facts().calls.empty());
}

TEST_F(StampTest, FailsWithoutAMessageOrARecord) {
  EXPECT_FALSE(LibraryTest::take(action, nullptr, flag));
  EXPECT_FALSE(action.takeAction(&msg, tokens, nullptr));
}

TEST_F(StampTest, ExpandsStoredLineBreaksInTheRecord) {
  stamp.stampText = "\x03Line1\x03Line2\x03\x03";
  EXPECT_TRUE(take());
  EXPECT_EQ(insertions(), Texts{"2 20 utf-8 us-ascii '\r\nLine1\r\nLine2\r\n\r\n'"});
  EXPECT_EQ(stamp.stampText, "\r\nLine1\r\nLine2\r\n\r\n");
}

TEST_F(StampTest, BlankLinesGrowWithEveryMessage) {
  set("NumOfBlankLineBeforeStampMessage", "2", "general");
  EXPECT_TRUE(take());
  EXPECT_TRUE(take());
  fakes::Message second;
  EXPECT_TRUE(LibraryTest::take(action, &second, flag));
  EXPECT_EQ(insertions(), (Texts{"2 20 utf-8 us-ascii '\r\n\r\nStamp'",
                                 "2 20 utf-8 us-ascii '\r\n\r\n\r\n\r\nStamp'"}));
  EXPECT_EQ(stamp.stampText, "\r\n\r\n\r\n\r\n\r\n\r\nStamp");
}

TEST_F(StampTest, BlankLinesGrowEvenWhereAMessageIsLeftAlone) {
  set("NumOfBlankLineBeforeStampMessage", "1", "general");
  msg.facts().pgpSigned = true;
  EXPECT_TRUE(take());
  EXPECT_EQ(stamp.stampText, "\r\nStamp");
}

TEST_F(StampTest, KeepsTheTokensInTheRecord) {
  ActionUtils::_build_token_string_table();
  stamp.stampText = "From %SENDER% of %UNKNOWN%";
  tokens.set(ScanToken::Sender, "a@a.example");
  EXPECT_TRUE(take());
  EXPECT_EQ(insertions(), Texts{"2 20 utf-8 us-ascii 'From a@a.example of %UNKNOWN%'"});
  EXPECT_EQ(stamp.stampText, "From %SENDER% of %UNKNOWN%");
}

TEST_F(StampTest, InsertsNothingWhereThereIsNoText) {
  stamp.stampText = "";
  EXPECT_TRUE(take());
  EXPECT_TRUE(insertions().empty());
  EXPECT_TRUE(locators().empty());
}

TEST_F(StampTest, DividesLongLines) {
  set("DisclaimerLineLimit", "4");
  stamp.stampText = "abcdefgh";
  EXPECT_TRUE(take());
  EXPECT_EQ(insertions(), Texts{"2 20 utf-8 us-ascii 'abcd\r\nefgh'"});
  EXPECT_EQ(locators(), (Texts{"create 1 10 10 1", "delete"}));
  EXPECT_EQ(log.takeLines(1), (Texts{"Long line detected '8'", "Long line divided '6'"}));
  EXPECT_EQ(stamp.stampText, "abcdefgh");
}

struct GuardCase {
  const char* what;
  bool smime, pgp, tnef;
  unsigned int mode;
  bool stamped;
  Texts asked;
};

const Texts kLookup{"findContentType ms-tnef nested"};
const Texts kLookupAndSmime{"findContentType ms-tnef nested", "isSmimeSigned"};
const Texts kAll{"findContentType ms-tnef nested", "isSmimeSigned", "isPgpSigned"};

TEST_F(StampTest, LeavesSignedAndTnefMessagesAloneUnlessTheModeIsTwo) {
  const GuardCase kCases[] = {
      {"plain", false, false, false, 1, true, kAll},
      {"plain, mode 2: nobody is asked", false, false, false, 2, true, {}},
      {"TNEF", false, false, true, 1, false, kLookup},
      {"TNEF, mode 2", false, false, true, 2, true, {}},
      {"TNEF, mode 3", false, false, true, 3, false, kLookup},
      {"S/MIME", true, false, false, 1, false, kLookupAndSmime},
      {"OpenPGP", false, true, false, 1, false, kAll},
      {"OpenPGP, mode 0", false, true, false, 0, false, kAll},
      {"both, mode 2", true, true, false, 2, true, {}},
  };
  for (const GuardCase& test : kCases) {
    SCOPED_TRACE(test.what);
    fakes::MessageFacts& facts = msg.facts();
    facts = {};
    facts.smimeSigned = test.smime;
    facts.pgpSigned = test.pgp;
    if (test.tnef) {
      facts.ofLookedUpType.push_back(msg.root());
    }
    stamp.signedTnefMode = test.mode;
    EXPECT_TRUE(take());
    const bool stamped = !facts.calls.empty() && facts.calls.back().starts_with("insertText");
    EXPECT_EQ(stamped, test.stamped);
    if (stamped) {
      facts.calls.pop_back();
    }
    EXPECT_EQ(facts.calls, test.asked);
    EXPECT_EQ(log.takeLines().size(), stamped ? 1u : 0u) << "leaving alone is not logged";
  }
}

TEST_F(StampTest, GoesOnWhenTheLookupFails) {
  msg.facts().lookupAnswer = false;
  EXPECT_TRUE(take());
  EXPECT_EQ(insertions().size(), 1u);
  EXPECT_EQ(log.takeLines(),
            (LogLines{{1, "Failed to gather content type ('ms-tnef') information."},
                      {3, "PreferCharset has been set to us-ascii"}}));
}

TEST_F(StampTest, LooksAtTheListEvenWhenTheLookupFailed) {
  msg.facts().lookupAnswer = false;
  msg.facts().ofLookedUpType.push_back(msg.root());
  EXPECT_TRUE(take());
  EXPECT_TRUE(insertions().empty());
  EXPECT_EQ(log.takeLines(),
            (LogLines{{1, "Failed to gather content type ('ms-tnef') information."}}));
}

struct CharsetCase {
  const char* what;
  const char* useMailCharset;
  const char* useUtf8ForStamp;
  const char* preferUtf8;
  const char* preferred;  // default destination charset
  const char* mail;       // null: the message has none
  const char* charset;
};

TEST_F(StampTest, ChoosesTheCharset) {
  const CharsetCase kCases[] = {
      {"nothing set", "0", "0", "0", "us-ascii", "koi8-r", "us-ascii"},
      {"default destination", "0", "0", "0", "iso-2022-jp", "koi8-r", "iso-2022-jp"},
      {"UTF-8 for stamps", "0", "1", "0", "iso-2022-jp", "koi8-r", "utf-8"},
      {"UTF-8 preferred", "0", "0", "1", "iso-2022-jp", "koi8-r", "utf-8"},
      {"the mail's", "1", "0", "0", "iso-2022-jp", "koi8-r", "koi8-r"},
      {"the mail's before UTF-8", "1", "1", "1", "iso-2022-jp", "koi8-r", "koi8-r"},
      {"a mail without one", "1", "0", "0", "iso-2022-jp", nullptr, "iso-2022-jp"},
      {"a mail with an empty one", "1", "0", "0", "iso-2022-jp", "", "iso-2022-jp"},
      {"a mail without one, UTF-8 for stamps", "1", "1", "0", "iso-2022-jp", nullptr, "utf-8"},
      {"a mail without one: UTF-8 preferred has no effect", "1", "0", "1", "iso-2022-jp", nullptr,
       "iso-2022-jp"},
      {"none at all", "0", "0", "0", "", nullptr, ""},
  };
  for (const CharsetCase& test : kCases) {
    SCOPED_TRACE(test.what);
    settings.set("General-Notification", "PreferredCharset", test.preferred);
    set("UseMailCharsetAsDestinationCharset", test.useMailCharset);
    set("UseUTF8AsPreferCharsetForStamp", test.useUtf8ForStamp);
    set("PreferCharsetAsUTF8", test.preferUtf8);
    msg.facts().charset.reset();
    if (test.mail != nullptr) {
      msg.facts().charset = test.mail;
    }
    EXPECT_TRUE(take());
    const std::string name = *test.charset != '\0' ? test.charset : "(null)";
    EXPECT_EQ(insertions(), Texts{"2 20 utf-8 " + name + " 'Stamp'"});
    EXPECT_EQ(log.takeLines(),
              (LogLines{{3, std::string("PreferCharset has been set to ") + test.charset}}));
  }
}

TEST_F(StampTest, DividesNothingWithoutACharset) {
  settings.set("General-Notification", "PreferredCharset", "");
  set("DisclaimerLineLimit", "4");
  stamp.stampText = "abcdefgh";
  EXPECT_TRUE(take());
  EXPECT_EQ(insertions(), Texts{"2 20 utf-8 (null) 'abcdefgh'"});
}

TEST_F(StampTest, ReportsAResourceThatCannotBeMade) {
  fakes::ResourceLocators::instance().refuse();
  EXPECT_FALSE(take());
  EXPECT_EQ(log.takeLines(1), Texts{"Failed to create in-memory resource locator (length 5 bytes) "
                                    "for disclaimer insertion."});
  EXPECT_TRUE(insertions().empty());
}

struct FailureCase {
  const char* ignore;
  unsigned int mode;
  bool result;
  int level;
  const char* line;
};

TEST_F(StampTest, ReportsAFailedInsertionOrIgnoresIt) {
  const FailureCase kCases[] = {
      {"0", 1, false, 1,
       "Failed to insert stamp into message. Error: malformed text (5), modify signed/tnef: 0, dst "
       "charset: us-ascii"},
      {"0", 2, false, 1,
       "Failed to insert stamp into message. Error: malformed text (5), modify signed/tnef: 1, dst "
       "charset: us-ascii"},
      {"0", 3, false, 1,
       "Failed to insert stamp into message. Error: malformed text (5), modify signed/tnef: 1, dst "
       "charset: us-ascii"},
      {"1", 1, true, 2,
       "Stamp insertion failure is ignored. Error: malformed text (5), modify signed/tnef: 0, dst "
       "charset: us-ascii"},
      {"-1", 2, true, 2,
       "Stamp insertion failure is ignored. Error: malformed text (5), modify signed/tnef: 1, dst "
       "charset: us-ascii"},
  };
  msg.facts().insertionAnswer = OVMSGERR::MalformedText;
  for (const FailureCase& test : kCases) {
    SCOPED_TRACE(test.line);
    set("IgnoreInsertError", test.ignore);
    stamp.signedTnefMode = test.mode;
    EXPECT_EQ(take(), test.result);
    const LogLines lines = log.takeLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1], (fakes::LogLine{test.level, test.line}));
    EXPECT_EQ(fakes::ResourceLocators::instance().alive(), 0);
  }
}

}  // namespace
