// How a subject is converted, written and, on the direct path, edited.
#include "library/actions/modification/subject_tagger.h"

#include <utility>

#include "tests/unit/library/actions/modification/tag_subject_test.h"

namespace {

using fakes::LogLines;

// A word in three forms.
const std::string kUtf8 = "\xE3\x81\x82";  // U+3042
const std::string kSjis = "\x82\xA0";
const std::string kJis = "\x1B$B$\"\x1B(B";

struct AttemptCase {
  const char* what;
  std::vector<std::pair<std::string, std::string>> refused;
  Texts conversions;
  Texts writes;
  const char* token;
};

TEST_F(TagSubjectTest, TriesOtherCharsets) {
  const AttemptCase kCases[] = {
      {"reads in the fallback",
       {{"cp1251", "utf-8"}},
       {"cp1251 utf-8 2043 1 63", "koi8-r utf-8 2043 1 63", "utf-8 cp1251 2048 0 63"},
       {"[X] Hello [cp1251]"},
       "[X] Hello"},
      {"reads in the local charset",
       {{"cp1251", "utf-8"}, {"koi8-r", "utf-8"}},
       {"cp1251 utf-8 2043 1 63", "koi8-r utf-8 2043 1 63", "iso-8859-5 utf-8 2043 1 63",
        "utf-8 cp1251 2048 0 63"},
       {"[X] Hello [cp1251]"},
       "[X] Hello"},
      {"cannot be read",
       {{"", "utf-8"}},
       {"cp1251 utf-8 2043 1 63", "koi8-r utf-8 2043 1 63", "iso-8859-5 utf-8 2043 1 63"},
       {},
       ""},
      {"writes in the fallback, and says so",
       {{"utf-8", "cp1251"}},
       {"cp1251 utf-8 2043 1 63", "utf-8 cp1251 2048 0 63", "utf-8 koi8-r 2048 0 63"},
       {"[X] Hello [koi8-r]"},
       "[X] Hello"},
      {"writes in UTF-8",
       {{"utf-8", ""}},
       {"cp1251 utf-8 2043 1 63", "utf-8 cp1251 2048 0 63", "utf-8 koi8-r 2048 0 63"},
       {"[X] Hello [utf-8]"},
       "[X] Hello"},
  };
  for (const AttemptCase& test : kCases) {
    SCOPED_TRACE(test.what);
    fakes::Conversions::instance().clear();
    for (const auto& [from, to] : test.refused) {
      fakes::Conversions::instance().refuse(from, to);
    }
    tokens.clear();
    log.takeLines();
    fakes::Message mail;
    mail.facts().charset = "koi8-r";
    fakes::Header* const header = mail.root()->addField("Subject", "Hello");
    header->facts().charset = "cp1251";
    EXPECT_TRUE(LibraryTest::take(action, &mail, flag));
    EXPECT_EQ(conversions(), test.conversions);
    EXPECT_EQ(header->facts().writes, test.writes);
    EXPECT_EQ(token(), test.token);
    LogLines lines{{3, "Tag Subject Action find subject:Hello"}};
    if (test.writes.empty()) {
      lines.push_back({3, "Ignore subject tagging due to error 'other error' (6)."});
    }
    EXPECT_EQ(log.takeLines(), lines);
  }
}

TEST_F(TagSubjectTest, EndsAtASubjectThatCannotBeRead) {
  fakes::Conversions::instance().refuse("", "utf-8");
  subject("one");
  subject("two");
  EXPECT_TRUE(take());
  EXPECT_EQ(msg.fields(), (Texts{"Subject:one", "Subject:two"}));
}

TEST_F(TagSubjectTest, GoesOnBehindASubjectWrittenInUtf8) {
  fakes::Conversions::instance().refuse("utf-8", "");
  subject("one");
  subject("two");
  EXPECT_TRUE(take());
  EXPECT_EQ(msg.fields(), (Texts{"Subject:[X] one", "Subject:[X] two"}));
}

TEST_F(TagSubjectTest, TakesTheNulsOutOfUcs2) {
  for (const char* charset : {"iso-10646-ucs-2", "ISO-10646-UCS-2"}) {
    fakes::Message mail;
    fakes::Header* const header = mail.root()->addField("Subject", "");
    header->facts().charset = charset;
    EXPECT_TRUE(LibraryTest::take(action, &mail, flag));
    EXPECT_EQ(header->facts().writes, Texts{std::string("[X]  [") + charset + "]"});
  }
}

struct EncodingCase {
  const char* what;
  const char* notEncoding;
  bool hadWords;
  const char* charset;
  const char* passed;
};

TEST_F(TagSubjectTest, SaysWhetherToEncode) {
  const EncodingCase kCases[] = {
      {"encoded", "0", false, "koi8-r", "koi8-r"},
      {"encoded as before", "0", true, "koi8-r", "koi8-r"},
      {"as it stands", "1", false, "koi8-r", "(null)"},
      {"encoded words stay encoded", "1", true, "koi8-r", "koi8-r"},
      {"Latin-1", "0", false, "iso-8859-1", "(null)"},
      {"Latin-1 with words", "1", true, "ISO-8859-1", "(null)"},
      {"whatever begins so", "0", true, "iso-8859-15", "(null)"},
      {"but not what only comes close", "0", true, "iso-8859-2", "iso-8859-2"},
  };
  for (const EncodingCase& test : kCases) {
    SCOPED_TRACE(test.what);
    initialise("0", test.notEncoding);
    fakes::Message mail;
    fakes::Header* const header = mail.root()->addField("Subject", "Hello");
    header->facts().charset = test.charset;
    header->facts().hadEncodedWords = test.hadWords;
    EXPECT_TRUE(LibraryTest::take(action, &mail, flag));
    EXPECT_EQ(header->facts().writes, Texts{std::string("[X] Hello [") + test.passed + "]"});
  }
}

// Text in the fallback charset under no charset, or another one, would be mislabelled.
TEST_F(TagSubjectTest, NamesTheFallbackEvenWhereTheSubjectWasLatin1) {
  fakes::Conversions::instance().refuse("utf-8", "iso-8859-1");
  fakes::Header* const header = subject("Hello");
  header->facts().charset = "iso-8859-1";
  EXPECT_TRUE(take());
  EXPECT_EQ(header->facts().writes, Texts{"[X] Hello [koi8-r]"});
}

struct RetryCase {
  const char* what;
  const char* charset;  // null: none
  unsigned int refusals;
  bool result;
  Texts writes;
};

TEST_F(TagSubjectTest, RetriesARefusedWrite) {
  const RetryCase kCases[] = {
      {"own charset, once", "cp1251", 1, true, {"[X] Hello [cp1251]", "[X] Hello [(null)]"}},
      {"own charset, always", "cp1251", 9, false, {"[X] Hello [cp1251]", "[X] Hello [(null)]"}},
      {"none, once", nullptr, 1, true, {"[X] Hello [koi8-r]", "[X] Hello [koi8-r]"}},
      {"none, twice",
       nullptr,
       2,
       true,
       {"[X] Hello [koi8-r]", "[X] Hello [koi8-r]", "[X] Hello [(null)]"}},
      {"none, always",
       nullptr,
       3,
       false,
       {"[X] Hello [koi8-r]", "[X] Hello [koi8-r]", "[X] Hello [(null)]"}},
  };
  for (const RetryCase& test : kCases) {
    SCOPED_TRACE(test.what);
    fakes::Message mail;
    mail.facts().charset = "koi8-r";
    fakes::Header* const header = mail.root()->addField("Subject", "Hello");
    if (test.charset != nullptr) {
      header->facts().charset = test.charset;
    }
    header->facts().refusals = test.refusals;
    EXPECT_EQ(LibraryTest::take(action, &mail, flag), test.result);
    EXPECT_EQ(header->facts().writes, test.writes);
  }
}

TEST_F(TagSubjectTest, FailsWhenUtf8IsRefusedAsWell) {
  fakes::Conversions::instance().refuse("utf-8", "");
  fakes::Header* const header = subject("Hello");
  header->facts().refusals = 1;
  EXPECT_FALSE(take());
  EXPECT_EQ(header->facts().writes, Texts{"[X] Hello [utf-8]"});
}

struct DirectCase {
  const char* what;
  std::string raw;
  Texts writes;
};

TEST_F(TagSubjectTest, EditsTheRawFieldWhenTold) {
  const DirectCase kCases[] = {
      {"a line", "Subject: Hello\r\n", {"[X] Hello [(null)]"}},
      {"no space behind the colon", "Subject:Hello\r\n", {"[X]Hello [(null)]"}},
      {"encoded words and folds as they stand",
       "Subject: =?utf-8?B?4w==?=\r\n :x\r\n",
       {"[X] =?utf-8?B?4w==?=\r\n :x [(null)]"}},
      {"no final break", "Subject: Hello", {"[X] Hello [(null)]"}},
      {"LF alone stays", "Subject: Hello\n", {"[X] Hello\n [(null)]"}},
      {"one CR LF of two", "Subject: Hello\r\n\r\n", {"[X] Hello\r\n [(null)]"}},
      {"nothing behind the colon", "Subject:\r\n", {"[X] [(null)]"}},
      {"no colon", "Subject Hello\r\n", {}},
      {"empty", "", {}},
  };
  initialise("1", "0");
  tag("[X]");
  for (const DirectCase& test : kCases) {
    SCOPED_TRACE(test.what);
    fakes::Message mail;
    fakes::Header* const header = mail.root()->addField("Subject", "Hello");
    header->facts().raw = test.raw;
    EXPECT_TRUE(LibraryTest::take(action, &mail, flag));
    EXPECT_EQ(header->facts().writes, test.writes);
  }
  EXPECT_EQ(token(), "") << "not updated here";
  EXPECT_TRUE(conversions().empty());
}

TEST_F(TagSubjectTest, DoesNothingToAFieldWithoutARawLine) {
  initialise("1", "0");
  fakes::Header* const first = subject("one");
  first->facts().hasRawValue = false;
  fakes::Header* const second = subject("two");
  EXPECT_TRUE(take());
  EXPECT_TRUE(first->facts().writes.empty());
  EXPECT_EQ(second->facts().writes, Texts{"[X]  two [(null)]"});
  EXPECT_EQ(log.takeLines(), (LogLines{{3, "Tag Subject Action find subject:one"},
                                       {3, "Tag Subject Action find subject:two"}}));
}

TEST_F(TagSubjectTest, PutsTheWholeTagIntoTheRawField) {
  initialise("1", "0");
  tag(std::string(3000, 'x'));
  fakes::Header* const header = subject("Hello");
  EXPECT_TRUE(take());
  EXPECT_EQ(header->facts().writes, Texts{std::string(3000, 'x') + " Hello [(null)]"});
}

TEST_F(TagSubjectTest, ConvertsATagThatIsNotAsciiAllTheSame) {
  initialise("1", "0");
  tag(kUtf8);
  msg.facts().charset = "shift_jis";
  fakes::Header* const header = subject("Hello");
  EXPECT_TRUE(take());
  EXPECT_EQ(header->facts().writes, Texts{kSjis + "Hello [shift_jis]"});
}

TEST_F(TagSubjectTest, AnEmptyExpandedTagIsAscii) {
  ActionUtils::_build_token_string_table();
  initialise("1", "0");
  tag("%SENDER%");
  fakes::Header* const header = subject("Hello");
  EXPECT_TRUE(take());
  EXPECT_EQ(header->facts().writes, Texts{" Hello [(null)]"});
}

TEST_F(TagSubjectTest, FailsWhenTheRawFieldCannotBeWritten) {
  initialise("1", "0");
  subject("Hello")->facts().refusals = 1;
  EXPECT_FALSE(take());
}

TEST_F(TagSubjectTest, WritesStatefulText) {
  msg.facts().charset = "iso-2022-jp";
  tag(kUtf8);
  fakes::Header* const header = subject("a");
  EXPECT_TRUE(take());
  EXPECT_EQ(header->facts().writes, Texts{kJis + "a [iso-2022-jp]"});
}

}  // namespace
