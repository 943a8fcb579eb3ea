#include "library/framework/kavi_action_n.h"

#include <climits>
#include <cstring>
#include <memory>

#include "library/framework/replaceable.h"
#include "tests/unit/library/library_test.h"

namespace {

using fakes::LogLines;

/// An action on named objects as the library's own are: constants in place of the stored values.
class Sample : public KaviActionN {
 public:
  explicit Sample(ActionType code = Stamp, bool original = false) : KaviActionN(code, original) {}
  const Ids& read() const { return ids; }
  void fill(Ids values) { ids = std::move(values); }
};

class KaviActionNTest : public LibraryTest {};

struct IdListCase {
  const char* what;
  const char* text;
  int length;  // -1: the text's own
  bool result;
  Ids ids;
};

const IdListCase kIdLists[] = {
    {"one id", "1-5", -1, true, {5}},
    {"two ids", "2-7-12", -1, true, {7, 12}},
    {"any separator", "2:7:12", -1, true, {7, 12}},
    {"mixed separators",
     "2x7\xFF"
     "12",
     -1,
     true,
     {7, 12}},
    {"fewer ids than announced", "3-1-2", -1, false, {1, 2}},
    {"more ids than announced", "1-5-9", -1, true, {5}},
    {"any text behind the last id", "1-5!%s%n", -1, true, {5}},
    {"no ids", "0-0", -1, false, {}},
    {"count alone", "2", -1, false, {}},
    {"count and separator", "2-", -1, false, {}},
    {"no digits at the count", "x-1", -1, false, {}},
    {"no digits at an id", "2-7-x", -1, false, {7}},
    {"two separators in a row", "2-7::12", -1, false, {7}},
    {"a second minus is a sign", "1--1", -1, true, {UINT_MAX}},
    {"blanks as strtoul skips them", " 2- 7- 12", -1, true, {7, 12}},
    {"separator missing at the end", "2-7-", -1, false, {7}},
    {"empty", "", -1, false, {}},
    {"empty with a length", "", 5, false, {}},
    {"length 0", "2-7-12", 0, false, {}},
    {"negative length", "2-7-12", -5, false, {}},
    {"length ends behind the count", "2-7-12", 1, false, {}},
    {"length ends behind a separator", "2-7-12", 2, false, {7}},
    {"length ends behind the first id", "2-7-12", 3, false, {7}},
    {"length ends before the last id: it is read whole", "2-7-12", 5, true, {7, 12}},
    {"length ends in the count: the count is read whole", "12-7", 1, false, {}},
    {"length above the text", "2-7-12", 100, true, {7, 12}},
    {"length above a text that is cut short", "3-7-12", INT_MAX, false, {7, 12}},
    {"largest length", "1-5", INT_MAX, true, {5}},
    {"largest id", "1-4294967295", -1, true, {4294967295u}},
    {"an id beyond 32 bits keeps its low bits", "1-4294967301", -1, true, {5}},
    {"an id beyond 64 bits saturates", "1-99999999999999999999", -1, true, {UINT_MAX}},
    {"a count beyond 32 bits is not cut", "4294967297-5", -1, false, {5}},
};

TEST_F(KaviActionNTest, ParsesIdLists) {
  for (const IdListCase& test : kIdLists) {
    SCOPED_TRACE(test.what);
    // An allocation of the text's own size: a look behind the NUL is an error under a sanitizer.
    const std::size_t size = std::strlen(test.text);
    const std::unique_ptr<char[]> text(new char[size + 1]);
    std::memcpy(text.get(), test.text, size + 1);
    Sample action;
    Ids found;
    const int length = test.length == -1 ? static_cast<int>(size) : test.length;
    EXPECT_EQ(action.getNamedObjectIds(text.get(), length, found), test.result);
    EXPECT_EQ(found, test.ids);
  }
}

TEST_F(KaviActionNTest, ConstructsFromTheSameListsAndLogsWhatItRefuses) {
  for (const IdListCase& test : kIdLists) {
    SCOPED_TRACE(test.what);
    if (test.length < -1) {
      continue;
    }
    Sample action;
    const unsigned int length = test.length == -1
                                    ? static_cast<unsigned int>(std::strlen(test.text))
                                    : static_cast<unsigned int>(test.length);
    EXPECT_EQ(action.construct(test.text, length), test.result);
    EXPECT_EQ(action.read(), test.ids);
    const LogLines refused{{1, std::string("Failed to construct Action StampName with setting: '") +
                                   std::string(test.text).substr(0, 32) + "' (max 32 chars)"}};
    EXPECT_EQ(log.takeLines(), test.result ? LogLines{} : refused);
  }
}

TEST_F(KaviActionNTest, RefusesNullIdList) {
  Sample action;
  Ids found{3};
  EXPECT_FALSE(action.getNamedObjectIds(nullptr, 5, found));
  EXPECT_EQ(found, Ids{3});
}

TEST_F(KaviActionNTest, LogsANullSettingAsTheEmptyString) {
  Sample action;
  EXPECT_FALSE(action.construct(nullptr, 5));
  EXPECT_EQ(
      log.takeLines(),
      (LogLines{{1, "Failed to construct Action StampName with setting: '' (max 32 chars)"}}));
}

TEST_F(KaviActionNTest, LogsTheFirst32CharactersOfARefusedSetting) {
  Sample action;
  const std::string setting = "0-" + std::string(30, 'a') + "b";
  EXPECT_FALSE(action.construct(setting.c_str(), static_cast<unsigned int>(setting.size())));
  EXPECT_EQ(log.takeLines(),
            (LogLines{{1, "Failed to construct Action StampName with setting: '0-" +
                              std::string(30, 'a') + "' (max 32 chars)"}}));
}

TEST_F(KaviActionNTest, CountsALengthAboveTheSignedRangeAsTheLargest) {
  for (unsigned int length : {static_cast<unsigned int>(INT_MAX), INT_MAX + 1u, UINT_MAX}) {
    Sample action;
    EXPECT_TRUE(action.construct("2-7-12", length));
    EXPECT_EQ(action.read(), (Ids{7, 12}));
  }
}

TEST_F(KaviActionNTest, AppendsToTheIdsItHolds) {
  Sample action;
  EXPECT_TRUE(action.construct("1-5", 3));
  EXPECT_TRUE(action.construct("2-6-7", 5));
  EXPECT_EQ(action.read(), (Ids{5, 6, 7}));
  Ids found{1};
  EXPECT_TRUE(action.getNamedObjectIds("1-2", 3, found));
  EXPECT_EQ(found, (Ids{1, 2}));
}

TEST_F(KaviActionNTest, NamesTheActionByItsStoredType) {
  class Disguised : public Sample {
   public:
    Disguised() : Sample(Archive, true) {}
    ActionType getType() const override { return Notify; }
  };
  Disguised action;
  EXPECT_FALSE(action.construct("", 0));
  EXPECT_EQ(
      log.takeLines(),
      (LogLines{{1, "Failed to construct Action ArchiveName with setting: '' (max 32 chars)"}}));
}

TEST_F(KaviActionNTest, ConstructUsesTheOverriddenParser) {
  class OwnParser : public Sample {
   public:
    using Sample::getNamedObjectIds;
    bool getNamedObjectIds(const char* setting, int length, Ids& found) override {
      EXPECT_STREQ(setting, "anything");
      EXPECT_EQ(length, 8);
      found.push_back(77);
      return true;
    }
  };
  OwnParser action;
  EXPECT_TRUE(action.construct("anything", 8));
  EXPECT_EQ(action.read(), Ids{77});
}

TEST_F(KaviActionNTest, SerializesCountAndIds) {
  const struct {
    Ids ids;
    const char* text;
  } kCases[] = {
      {{}, "0-0"},         {{5}, "1-5"},
      {{7, 12}, "2-7-12"}, {{12, 7, 7}, "3-12-7-7"},
      {{0}, "1-0"},        {{UINT_MAX}, "1-4294967295"},
  };
  for (const auto& test : kCases) {
    Sample action;
    action.fill(test.ids);
    EXPECT_EQ(action.serialize(), test.text);
  }
}

TEST_F(KaviActionNTest, ReadsBackWhatItWroteButForTheEmptyList) {
  Sample written;
  Ids many;
  for (unsigned int id = 0; id < 1000; ++id) {
    many.push_back(id * 4294967u);
  }
  written.fill(many);
  const std::string text = written.serialize();
  Sample read;
  EXPECT_TRUE(read.construct(text.c_str(), static_cast<unsigned int>(text.size())));
  EXPECT_EQ(read.read(), many);

  Sample empty;
  const std::string none = empty.serialize();
  EXPECT_FALSE(empty.construct(none.c_str(), static_cast<unsigned int>(none.size())));
  EXPECT_EQ(log.takeLines(1).size(), 1u);
}

TEST_F(KaviActionNTest, AnswersTheStoredTypeAndRequirement) {
  Sample stamp(KaviAction::Stamp, false);
  EXPECT_EQ(stamp.getType(), KaviAction::Stamp);
  EXPECT_FALSE(stamp.requiresOriginalMsg());
  EXPECT_TRUE(stamp.hasNamedObjects());
  Sample archive(KaviAction::Archive, true);
  EXPECT_EQ(archive.getType(), 0);
  EXPECT_TRUE(archive.requiresOriginalMsg());
}

TEST_F(KaviActionNTest, TakeActionDoesNothing) {
  Sample action;
  fakes::Message msg;
  for (bool before : {false, true}) {
    bool flag = before;
    EXPECT_FALSE(take(action, &msg, flag));
    EXPECT_EQ(flag, before);
  }
  EXPECT_TRUE(adapter.calls().empty());
  EXPECT_TRUE(tokens.empty());
}

TEST_F(KaviActionNTest, TheStringOverloadHandsOverTextAndLength) {
  Sample action;
  Ids found;
  EXPECT_TRUE(action.getNamedObjectIds(std::string("2-7-12"), found));
  EXPECT_EQ(found, (Ids{7, 12}));
  EXPECT_FALSE(action.getNamedObjectIds(std::string(), found));
  EXPECT_FALSE(action.getNamedObjectIds(std::string("2-7\0-12", 7), found));
  EXPECT_EQ(found, (Ids{7, 12, 7}));
}

TEST_F(KaviActionNTest, BaseClassDefaults) {
  class Bare : public KaviAction {
   public:
    bool construct(const char* /*setting*/, unsigned int /*length*/) override { return true; }
    std::string serialize() override { return {}; }
    ActionType getType() const override { return Delete; }
    bool requiresOriginalMsg() override { return false; }
    bool takeAction(OvMsgMailMessage* /*msg*/, const OvMsgMailMessage* /*original*/, bool& /*flag*/,
                    Kavi::TokenMap<Kavi::ScanToken>& /*tokens*/, OvIsAdapter& /*adapter*/,
                    const NamedObjMgrForScanner& /*namedObjects*/) override {
      return true;
    }
  };
  Bare action;
  EXPECT_FALSE(action.hasNamedObjects());
  Ids found{9};
  EXPECT_FALSE(action.getNamedObjectIds("1-5", 3, found));
  EXPECT_FALSE(static_cast<KaviAction&>(action).getNamedObjectIds(std::string("1-5"), found));
  EXPECT_EQ(found, Ids{9});
  action.fillInTokenMap(tokens, namedObjects);
  EXPECT_TRUE(tokens.empty());
}

TEST(ReplaceableTest, IsAbstractWithAVirtualDestructor) {
  EXPECT_TRUE(std::is_abstract_v<Replaceable>);
  EXPECT_TRUE(std::has_virtual_destructor_v<Replaceable>);
}

}  // namespace
