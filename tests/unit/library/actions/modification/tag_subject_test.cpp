#include "library/actions/modification/tag_subject.h"

#include <climits>
#include <cstring>
#include <memory>

#include "library/actions/modification/subject_tagger.h"
#include "library/platform/ov_msg_error.h"
#include "tests/unit/library/actions/modification/tag_subject_test.h"

namespace {

using fakes::LogLines;
using Kavi::ScanToken;

const std::string kUtf8 = "\xE3\x81\x82";  // U+3042
const std::string kSjis = "\x82\xA0";      // the same

struct SettingCase {
  const char* what;
  std::string text;
  unsigned int length;
  bool result;
  bool signedToo;
  const char* tag;
};

const SettingCase kSettings[] = {
    {"unsigned only", "Fspam:", 6, true, false, "spam:"},
    {"signed, too", "Tspam:", 6, true, true, "spam:"},
    {"any other letter is F", "tx", 2, true, false, "x"},
    {"T in the tag", "FT", 2, true, false, "T"},
    {"length ends in the tag", "Tspam:", 3, true, true, "sp"},
    {"length beyond the text", "Tspam:", 4000, true, true, "spam:"},
    {"any length beyond the text", "Tspam:", UINT_MAX, true, true, "spam:"},
    {"the NUL ends the tag", std::string("Ta\0b", 4), 4, true, true, "a"},
    {"UTF-8", "F\xE3\x81\x82", 4, true, false, "\xE3\x81\x82"},
    {"no tag", "T", 1, false, false, "before"},
    {"no tag in a longer length", "T", 10, false, false, "before"},
    {"length ends in front of the tag", "Tx", 1, false, false, "before"},
    {"length 0", "Tx", 0, false, false, "before"},
    {"empty", "", 0, false, false, "before"},
};

template <class Settings>
void readsSettings() {
  for (const SettingCase& test : kSettings) {
    SCOPED_TRACE(test.what);
    // A copy of the text's own size: a look behind its NUL is an error under a sanitizer.
    const std::unique_ptr<char[]> text(new char[test.text.size() + 1]);
    std::memcpy(text.get(), test.text.c_str(), test.text.size() + 1);
    Settings object;
    EXPECT_EQ(object.setTagSubjectAction(false, "before"), 0);
    EXPECT_EQ(object.construct(text.get(), test.length), test.result);
    bool signedToo = true;
    std::string tag;
    EXPECT_EQ(object.getTagSubjectAction(signedToo, tag), 0);
    EXPECT_EQ(signedToo, test.signedToo);
    EXPECT_EQ(tag, test.tag);
    EXPECT_EQ(object.serialize(), (test.signedToo ? "T" : "F") + std::string(test.tag));
  }
  Settings object;
  EXPECT_FALSE(object.construct(nullptr, 5));
  EXPECT_EQ(object.serialize(), "F");
  EXPECT_EQ(object.setTagSubjectAction(true, nullptr), 0);
  EXPECT_EQ(object.serialize(), "T");
}

TEST_F(TagSubjectTest, BothClassesReadTheSameSettings) {
  readsSettings<uiTagSubject>();
  readsSettings<ActTagSubject>();
  EXPECT_TRUE(log.takeLines().empty()) << "nothing is logged";
}

TEST_F(TagSubjectTest, RemovesNulsInPlace) {
  const struct {
    std::string before;
    unsigned int length;
    std::string after;
  } kCases[] = {
      {std::string("\0a\0b", 4), 4, std::string("ab\0\0", 4)},
      {std::string("a\0b\0c", 5), 3, std::string("ab\0\0c", 5)},
      {std::string("\0\0", 2), 2, std::string("\0\0", 2)},
      {"abc", 3, "abc"},
      {std::string("\0a", 2), 0, std::string("\0a", 2)},
  };
  for (const auto& test : kCases) {
    std::string buffer = test.before;
    library::RemoveNullCharInplace(buffer.data(), test.length);
    EXPECT_EQ(buffer, test.after);
  }
}

TEST_F(TagSubjectTest, TagsInTheCharsetOfTheMessage) {
  fakes::Header* const header = subject("Hello");
  EXPECT_TRUE(take());
  EXPECT_EQ(header->facts().writes, Texts{"[X] Hello [koi8-r]"});
  EXPECT_EQ(token(), "[X] Hello");
  EXPECT_EQ(conversions(), (Texts{"koi8-r utf-8 2043 1 63", "utf-8 koi8-r 2048 0 63"}));
  EXPECT_EQ(log.takeLines(), (LogLines{{3, "Tag Subject Action find subject:Hello"}}));
  EXPECT_EQ(msg.facts().calls, (Texts{"isPgpSigned", "isSmimeSigned", "getCharset"}));
}

TEST_F(TagSubjectTest, TagsInTheSubjectsOwnCharset) {
  tag(kUtf8);
  fakes::Header* const header = subject("=?shift_jis?B?gqA=?=");
  header->facts().decoded = kSjis;
  header->facts().charset = "shift_jis";
  header->facts().hadEncodedWords = true;
  EXPECT_TRUE(take());
  EXPECT_EQ(header->facts().writes, Texts{kSjis + kSjis + " [shift_jis]"});
  EXPECT_EQ(token(), kUtf8 + kUtf8);
  EXPECT_EQ(conversions(), (Texts{"shift_jis utf-8 2044 1 63", "utf-8 shift_jis 2048 0 63"}));
}

TEST_F(TagSubjectTest, FallsBackToTheLocalCharset) {
  for (const char* charset : {"", "none"}) {
    msg.facts().charset.reset();
    if (*charset == '\0') {
      msg.facts().charset = "";
    }
    msg.root()->removeHeaderAt(0);
    fakes::Header* const header = subject("Hello");
    EXPECT_TRUE(take());
    EXPECT_EQ(header->facts().writes, Texts{"[X] Hello [iso-8859-5]"});
  }
}

TEST_F(TagSubjectTest, AnEmptyCharsetIsNone) {
  fakes::Header* const header = subject("Hello");
  header->facts().charset = "";
  header->facts().refusals = 1;
  EXPECT_TRUE(take());
  EXPECT_EQ(header->facts().writes, (Texts{"[X] Hello [koi8-r]", "[X] Hello [koi8-r]"}));
}

TEST_F(TagSubjectTest, ReplacesTokensInTheTag) {
  ActionUtils::_build_token_string_table();
  tokens.set(ScanToken::RuleName, "rule 7");
  tag("[%RULENAME%] ");
  fakes::Header* const header = subject("Hello");
  EXPECT_TRUE(take());
  EXPECT_EQ(header->facts().writes, Texts{"[rule 7] Hello [koi8-r]"});
}

TEST_F(TagSubjectTest, LeavesSignedMessagesAlone) {
  const struct {
    bool pgp, smime, signedToo, tagged;
    Texts asked;
  } kCases[] = {
      {true, false, false, false, {"isPgpSigned"}},
      {false, true, false, false, {"isPgpSigned", "isSmimeSigned"}},
      {true, true, true, true, {"getCharset"}},
  };
  for (const auto& test : kCases) {
    fakes::Message signedMessage;
    signedMessage.facts().pgpSigned = test.pgp;
    signedMessage.facts().smimeSigned = test.smime;
    signedMessage.root()->addField("Subject", "Hello");
    tag("[X] ", test.signedToo);
    EXPECT_TRUE(LibraryTest::take(action, &signedMessage, flag));
    EXPECT_EQ(signedMessage.fields(), Texts{test.tagged ? "Subject:[X] Hello" : "Subject:Hello"});
    EXPECT_EQ(signedMessage.facts().calls, test.asked);
  }
}

TEST_F(TagSubjectTest, TagsEverySubjectOfAnEntity) {
  msg.root()->addField("From", "a@a.example");
  subject("one");
  msg.root()->addField("sUBJECT", "two");
  msg.root()->addField("Subject-Of", "x");
  msg.root()->addField("Subj", "x");
  EXPECT_TRUE(take());
  EXPECT_EQ(msg.fields(), (Texts{"From:a@a.example", "Subject:[X] one", "sUBJECT:[X] two",
                                 "Subject-Of:x", "Subj:x"}));
  EXPECT_EQ(token(), "[X] one") << "the first";
}

TEST_F(TagSubjectTest, PassesOverGapsAndNamelessFields) {
  msg.root()->addGap();
  msg.root()->addField("Subject", "no name")->facts().hasName = false;
  fakes::Header* const header = subject("Hello");
  EXPECT_TRUE(take());
  EXPECT_EQ(header->facts().writes, Texts{"[X] Hello [koi8-r]"});
}

TEST_F(TagSubjectTest, PassesOverSubordinateEntities) {
  subject("Hello");
  msg.root()->addPart("part")->addField("Subject", "of a part");
  EXPECT_TRUE(take());
  EXPECT_EQ(msg.root()->nextEntity()->header("Subject")->value(), std::string("of a part"));
  EXPECT_EQ(msg.fields(), Texts{"Subject:[X] Hello"});
}

TEST_F(TagSubjectTest, DoesNothingToAMessageWithoutARoot) {
  fakes::Message empty(false);
  EXPECT_TRUE(LibraryTest::take(action, &empty, flag));
  EXPECT_FALSE(flag);
}

TEST_F(TagSubjectTest, FailsWithoutAMessage) {
  flag = true;
  EXPECT_FALSE(LibraryTest::take(action, nullptr, flag));
  EXPECT_FALSE(flag);
}

TEST_F(TagSubjectTest, AddsASubjectWhereThereIsNone) {
  for (const bool hasOthers : {false, true}) {
    fakes::Message bare;
    bare.facts().charset = "shift_jis";
    if (hasOthers) {
      bare.root()->addField("From", "a@a.example");
    }
    tag(kUtf8);
    EXPECT_TRUE(LibraryTest::take(action, &bare, flag));
    EXPECT_EQ(bare.fields().back(), "Subject:" + kSjis);
    EXPECT_EQ(bare.root()->findField("Subject")->facts().charset, "shift_jis");
    EXPECT_EQ(conversions(), Texts{"utf-8 shift_jis 2048 0 63"});
  }
  EXPECT_EQ(token(), "") << "there was none to tag";
  EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(TagSubjectTest, AnswersWhetherTheSubjectCouldBeAdded) {
  msg.root()->facts().addsHeaders = false;
  EXPECT_FALSE(take());
  EXPECT_EQ(msg.fields(), Texts{});
}

TEST_F(TagSubjectTest, IgnoresATagThatCannotBeAdded) {
  fakes::Conversions::instance().refuse("utf-8", "koi8-r");
  EXPECT_TRUE(take());
  EXPECT_EQ(msg.fields(), Texts{});
  EXPECT_EQ(log.takeLines(), (LogLines{{3, "Ignore subject tagging due to error 'other error' (" +
                                               std::to_string(OVMSGERR::UnencodableText) + ")."}}));
}

TEST_F(TagSubjectTest, CutsTheTagTo2047Bytes) {
  tag(std::string(3000, 'x'));
  EXPECT_TRUE(take());
  EXPECT_EQ(msg.fields(), Texts{"Subject:" + std::string(2047, 'x')});
}

TEST_F(TagSubjectTest, LeavesNoRoomForTheSubjectBehindSuchATag) {
  tag(std::string(3000, 'x'));
  subject("");
  EXPECT_TRUE(take());
  EXPECT_EQ(msg.fields(), Texts{"Subject:"});
  EXPECT_EQ(conversions(),
            (Texts{"koi8-r utf-8 0 1 63", "koi8-r utf-8 0 1 63", "iso-8859-5 utf-8 0 1 63"}));
  EXPECT_EQ(log.takeLines().size(), 2u);
}

TEST_F(TagSubjectTest, FillsTheRoomBehindTheTag) {
  tag(std::string(2000, 'x'));
  for (const std::size_t size : {46u, 47u}) {
    fakes::Message mail;
    mail.facts().charset = "koi8-r";
    mail.root()->addField("Subject", std::string(size, 'y'));
    EXPECT_TRUE(LibraryTest::take(action, &mail, flag));
    EXPECT_EQ(mail.fields()[0].size(), size == 46 ? 8 + 2046u : 8 + 47u) << "2,047 with the NUL";
  }
}

TEST_F(TagSubjectTest, ReadsTwoSettingsAndKeepsThemWhenTheyAreMissing) {
  initialise("1", "1");
  fakes::Settings none;
  EXPECT_TRUE(ActTagSubject::init(none, log));
  EXPECT_EQ(none.lookups(),
            (Texts{"getInt MessageModule/TagDirectly", "getInt MessageModule/TagNotEncoding"}));
  EXPECT_TRUE(log.takeLines().empty()) << "nothing is logged";
  tag(kUtf8);
  msg.facts().charset = "shift_jis";
  fakes::Header* const header = subject("Hello");
  EXPECT_TRUE(take());
  EXPECT_EQ(header->facts().writes, Texts{kSjis + "Hello [(null)]"}) << "still not encoding";
  tag("[X]");
  EXPECT_TRUE(take());
  EXPECT_EQ(header->facts().writes.back(), "[X] " + kSjis + "Hello [(null)]") << "still directly";
}

}  // namespace
