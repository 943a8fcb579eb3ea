#include "library/actions/modification/x_header.h"

#include <climits>
#include <cstring>
#include <memory>

#include "tests/fakes/fault_plan.h"
#include "tests/unit/library/library_test.h"

namespace {

using fakes::FaultKind;
using fakes::FaultPlan;
using fakes::LogLines;

constexpr char kRefused[] =
    "Failed to construct Action InsertXHeaderTag with setting: '' (max 32 chars)";

std::string sized(std::size_t size) { return "X-A:" + std::string(size - 4, 'v'); }

struct SettingCase {
  const char* what;
  std::string text;
  bool valid;   // as a text
  bool result;  // of construct
  std::string name;
  std::string value;
};

const SettingCase kSettings[] = {
    {"plain", "X-Flag: yes", true, true, "X-Flag", "yes"},
    {"spaces around, colon in the value", " X-A : b:c ", true, true, "X-A", "b:c"},
    {"spaces within stay", "X A: b  c", true, true, "X A", "b  c"},
    {"no X-", "Subject:s", true, true, "Subject", "s"},
    {"colons only in the value", "a:::", true, true, "a", "::"},
    {"all printable", " !\"#$%&'()*+,-./0129;<=>?@AZ[\\]^_`az{|}~:~", true, true,
     "!\"#$%&'()*+,-./0129;<=>?@AZ[\\]^_`az{|}~", "~"},
    {"empty value", "X-Flag:", true, false, "X-Flag", ""},
    {"blank value", "X-Flag:   ", true, false, "X-Flag", ""},
    {"empty name", ":yes", true, false, "", "yes"},
    {"blank name", "  :yes", true, false, "", "yes"},
    {"colon alone", ":", true, false, "", ""},
    {"no colon", "X-Flag yes", false, false, "", ""},
    {"empty", "", false, false, "", ""},
    {"tab", "X-A:\tb", false, false, "", ""},
    {"CR", "X-A:b\r", false, false, "", ""},
    {"LF", "X-A:b\nX-B:c", false, false, "", ""},
    {"unit separator, 31", "X-A:b\x1F", false, false, "", ""},
    {"delete, 127", "X-A:b\x7F", false, false, "", ""},
    {"byte 128", "X-A:b\x80", false, false, "", ""},
    {"byte 255", "X-A:b\xFF", false, false, "", ""},
    {"UTF-8", "X-A:\xE3\x81\x82", false, false, "", ""},
    {"fault in front of the colon", "X-\xE9:b", false, false, "", ""},
    {"512 bytes", sized(512), true, true, "X-A", std::string(508, 'v')},
    {"513 bytes", sized(513), false, false, "", ""},
    {"70,000 bytes", sized(70000), false, false, "", ""},
    {"the NUL ends the text", std::string("X-A:b\0\xFF", 7), true, true, "X-A", "b"},
    {"a NUL in front", std::string("\0X-A:b", 6), false, false, "", ""},
};

class XHeaderTest : public LibraryTest {
 protected:
  bool construct(const std::string& text) {
    return action.construct(text.data(), static_cast<unsigned int>(text.size()));
  }

  ActInsertXHeaderTag action;
  fakes::Message msg;
};

TEST_F(XHeaderTest, SettingsClassValidatesAndSplits) {
  for (const SettingCase& test : kSettings) {
    SCOPED_TRACE(test.what);
    std::string checked = "old";
    const int length = static_cast<int>(test.text.size());
    EXPECT_EQ(uiInsertXHeaderTag::_checkXHeaderTagValidation(test.text.data(), length, checked),
              test.valid);
    if (test.valid) {
      EXPECT_EQ(checked, test.text.c_str());
    }
    uiInsertXHeaderTag settings;
    EXPECT_EQ(settings.construct(test.text.data(), static_cast<unsigned int>(length)), test.result);
    std::string name = "old";
    std::string value = "old";
    EXPECT_TRUE(settings.getXHeaderTag(name, value));
    EXPECT_EQ(name, test.name);
    EXPECT_EQ(value, test.value);
    EXPECT_EQ(settings.serialize(), test.name + ":" + test.value);
  }
  EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(XHeaderTest, ActionReadsTheSameSettingsAndLogsWhatItRefuses) {
  for (const SettingCase& test : kSettings) {
    SCOPED_TRACE(test.what);
    EXPECT_EQ(construct(test.text), test.result);
    EXPECT_EQ(action.serialize(), test.result ? test.name + ":" + test.value : ":");
    const bool logged = !test.result && !test.text.empty();
    EXPECT_EQ(log.takeLines(), logged ? (LogLines{{1, kRefused}}) : LogLines{});
  }
}

TEST_F(XHeaderTest, NullAndLengthZeroFailUnlogged) {
  EXPECT_TRUE(construct("X-A:b"));
  EXPECT_FALSE(action.construct(nullptr, 5));
  EXPECT_EQ(action.serialize(), ":");
  EXPECT_TRUE(construct("X-A:b"));
  EXPECT_FALSE(action.construct("X-A:b", 0));
  EXPECT_EQ(action.serialize(), ":");
  EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(XHeaderTest, ARefusedSettingEmptiesTheAction) {
  EXPECT_TRUE(construct("X-A:b"));
  EXPECT_FALSE(construct("no colon"));
  EXPECT_EQ(action.serialize(), ":");
  EXPECT_EQ(log.takeLines(), (LogLines{{1, kRefused}}));
}

struct LengthCase {
  const char* what;
  const char* text;
  unsigned int length;
  bool result;
  const char* serialized;
};

TEST_F(XHeaderTest, ChecksOnlyTheBytesUpToTheLengthAndTheNul) {
  const LengthCase kCases[] = {
      {"length above the text", "X-A:b", 400, true, "X-A:b"},
      {"length above 512, text below", "X-A:b", 10000, true, "X-A:b"},
      {"length above the signed range", "X-A:b", UINT_MAX, true, "X-A:b"},
      {"length ends in the value", "X-A:bcd", 5, true, "X-A:b"},
      {"length ends at the colon", "X-A:bcd", 4, false, ":"},
      {"length ends in the name", "X-A:bcd", 3, false, ":"},
      {"length ends before an unprintable byte", "X-A:b\t", 5, true, "X-A:b"},
  };
  for (const LengthCase& test : kCases) {
    SCOPED_TRACE(test.what);
    // An allocation of the text's own size: a look behind the NUL is an error under a sanitizer.
    const std::size_t size = std::strlen(test.text) + 1;
    const std::unique_ptr<char[]> text(new char[size]);
    std::memcpy(text.get(), test.text, size);
    EXPECT_EQ(action.construct(text.get(), test.length), test.result);
    EXPECT_EQ(action.serialize(), test.serialized);
    log.takeLines();
  }
}

TEST_F(XHeaderTest, DoesNotLookPastTheLength) {
  const std::unique_ptr<char[]> text(new char[5]);
  std::memcpy(text.get(), "X-A:b", 5);  // no NUL behind
  EXPECT_TRUE(action.construct(text.get(), 5));
  EXPECT_EQ(action.serialize(), "X-A:b");
}

TEST_F(XHeaderTest, ValidationRefusesNullAndNegativeLengths) {
  std::string checked = "old";
  EXPECT_FALSE(uiInsertXHeaderTag::_checkXHeaderTagValidation(nullptr, 5, checked));
  EXPECT_FALSE(uiInsertXHeaderTag::_checkXHeaderTagValidation("X-A:b", -1, checked));
  EXPECT_FALSE(uiInsertXHeaderTag::_checkXHeaderTagValidation("X-A:b", 0, checked));
  EXPECT_EQ(checked, "old");
  uiInsertXHeaderTag settings;
  EXPECT_FALSE(settings.construct(nullptr, 5));
}

TEST_F(XHeaderTest, SettingsClassTakesBothTextsUnchecked) {
  uiInsertXHeaderTag settings;
  EXPECT_EQ(settings.serialize(), ":");
  std::string name = "X-\n";
  std::string value = " v ";
  EXPECT_TRUE(settings.setXHeaderTag(name, value));
  EXPECT_EQ(name, "X-\n") << "copied, not taken";
  EXPECT_EQ(settings.serialize(), "X-\n: v ");
  std::string nameBack;
  std::string valueBack;
  EXPECT_TRUE(settings.getXHeaderTag(nameBack, valueBack));
  EXPECT_EQ(nameBack, name);
  EXPECT_EQ(valueBack, value);
}

TEST_F(XHeaderTest, SetsTheFieldAndClearsTheFlag) {
  msg.root()->addHeader(-1, "Subject", "s", nullptr);
  ASSERT_TRUE(construct("X-Flag: 100% %SENDER%"));
  bool flag = true;
  EXPECT_TRUE(take(action, &msg, flag));
  EXPECT_FALSE(flag);
  EXPECT_EQ(msg.fields(), (Texts{"Subject:s", "X-Flag:100% %SENDER%"}));
  EXPECT_TRUE(log.takeLines().empty());
  EXPECT_TRUE(adapter.calls().empty());
}

TEST_F(XHeaderTest, ReplacesTheFirstFieldOfThatName) {
  msg.root()->addHeader(-1, "x-flag", "1", nullptr);
  msg.root()->addHeader(-1, "X-Flag", "2", nullptr);
  ASSERT_TRUE(construct("X-Flag:3"));
  bool flag = false;
  EXPECT_TRUE(take(action, &msg, flag));
  EXPECT_EQ(msg.fields(), (Texts{"x-flag:3", "X-Flag:2"}));
}

TEST_F(XHeaderTest, FailsUnloggedWithoutMessageRootOrSettings) {
  bool flag = true;
  EXPECT_FALSE(take(action, &msg, flag)) << "no settings";
  EXPECT_FALSE(flag);
  EXPECT_TRUE(msg.fields().empty());

  ASSERT_TRUE(construct("X-A:b"));
  flag = true;
  EXPECT_FALSE(take(action, nullptr, flag)) << "no message";
  EXPECT_FALSE(flag);

  fakes::Message empty(false);
  flag = true;
  EXPECT_FALSE(take(action, &empty, flag)) << "no top-level entity";
  EXPECT_FALSE(flag);
  EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(XHeaderTest, LogsWhenTheFieldCannotBeSet) {
  ASSERT_TRUE(construct("X-A:b"));
  bool flag = true;
  const FaultPlan plan(FaultKind::PlatformFailure, 2);
  EXPECT_FALSE(take(action, &msg, flag));
  EXPECT_TRUE(plan.fired());
  EXPECT_FALSE(flag);
  EXPECT_EQ(log.takeLines(), (LogLines{{2, "Failed to set header 'X-A'."}}));
}

}  // namespace
