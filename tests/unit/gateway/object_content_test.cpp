#include "gateway/cli/object_content.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/unit/host/core/temp_folder.h"

namespace {

using namespace gateway::cli;
using gateway::policy::findObjectKind;
using gateway::policy::ObjectKind;

const ObjectKind& stamp() { return *findObjectKind(KaviNamedObj::StampType); }
const ObjectKind& area() { return *findObjectKind(KaviNamedObj::QuarantineAreaType); }
const ObjectKind& notification() { return *findObjectKind(KaviNamedObj::NotificationType); }

ContentOptions fields(std::vector<std::string> given) {
  ContentOptions options;
  options.fields = std::move(given);
  return options;
}

// The settings string, or what was said instead of one.
std::string madeOf(const ObjectKind& kind, const ContentOptions& options,
                   const ObjectTexts* present = nullptr, std::string name = "n") {
  ObjectTexts wanted{std::move(name), ""};
  ::testing::internal::CaptureStderr();
  const bool good = makeContent(kind, options, present, wanted);
  const std::string said = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(good, said.empty()) << said;
  return good ? wanted.setting : said;
}

TEST(ObjectContent, ComesFromFields) {
  EXPECT_EQ(madeOf(stamp(), fields({"text=a=b", "position=top"})), "1:1:3:a=b:0::");
  EXPECT_EQ(madeOf(area(), fields({})), "0:1:n:");
  EXPECT_EQ(madeOf(notification(), fields({"recipients=a@x.org", "recipients=b@x.org", "body=b"})),
            "1:n:0::15:a@x.org;b@x.org:0::1:b:0::0:0:0:0:0:0:0:");
}

TEST(ObjectContent, LeavesFieldsThatAreNotGiven) {
  const ObjectTexts present{"n", "1:2:1:x:3:aux:"};
  EXPECT_EQ(madeOf(stamp(), fields({"text=y"}), &present, ""), "1:2:1:y:3:aux:");
  EXPECT_EQ(madeOf(stamp(), fields({"position="}), &present, ""), "2:2:1:x:3:aux:");
  EXPECT_EQ(madeOf(stamp(), fields({"position=", "signed_and_tnef=", "note="}), &present, ""),
            "2:1:1:x:0::");
}

TEST(ObjectContent, GivesARecordThatRepeatsItsNameTheNewOne) {
  const ObjectTexts present{"old", "7:3:old:"};
  EXPECT_EQ(madeOf(area(), fields({}), &present, "new"), "7:3:new:");
  EXPECT_EQ(madeOf(area(), fields({"aging_days=8"}), &present, ""), "8:3:old:");
}

TEST(ObjectContent, KeepsAStringThatFieldsCannotSay) {
  // A position that no word stands for.
  const ObjectTexts present{"n", "9:2:1:x:0::"};
  EXPECT_EQ(madeOf(stamp(), fields({}), &present, "m"), "9:2:1:x:0::");
  EXPECT_NE(madeOf(stamp(), fields({"text=y"}), &present, "").find("says more than fields can"),
            std::string::npos);
}

TEST(ObjectContent, TakesTheStringItselfToTheLastByte) {
  const testing_host::TempFolder temp;
  ContentOptions options;
  options.setting = "1:1:1:x:0::";
  EXPECT_EQ(madeOf(stamp(), options), "1:1:1:x:0::");
  options = {};
  options.settingFile = temp / "setting";
  testing_host::writeFile(options.settingFile, "1:1:2:\xFF\n:0::\n");
  EXPECT_EQ(madeOf(stamp(), options), "1:1:2:\xFF\n:0::\n");
  testing_host::writeFile(options.settingFile, std::string("1:1:1:x:0::\0", 12));
  EXPECT_NE(madeOf(stamp(), options).find("it holds a NUL"), std::string::npos);
}

TEST(ObjectContent, LeavesEmptyTextsToTheOperation) {
  ContentOptions options;
  options.setting = "";
  EXPECT_EQ(madeOf(stamp(), options), "");
}

TEST(ObjectContent, TakesTheNameFromAnEntry) {
  const testing_host::TempFolder temp;
  ContentOptions options;
  options.entryFile = temp / "entry.yaml";
  testing_host::writeFile(options.entryFile, "{name: other, text: x}");
  ObjectTexts wanted;
  ASSERT_TRUE(makeContent(stamp(), options, nullptr, wanted));
  EXPECT_EQ(wanted.name, "other");
  EXPECT_NE(madeOf(stamp(), options, nullptr, "n").find("calls it 'other'"), std::string::npos);
  testing_host::writeFile(options.entryFile, "setting: '1:1:1:x:0::'");
  const ObjectTexts present{"kept", "1:1:1:y:0::"};
  wanted = {};
  ASSERT_TRUE(makeContent(stamp(), options, &present, wanted));
  EXPECT_EQ(wanted.name, "kept");
  EXPECT_EQ(wanted.setting, "1:1:1:x:0::");
}

TEST(ObjectContent, RefusesWhatCannotBeMeant) {
  const std::pair<ContentOptions, const char*> cases[] = {
      {fields({"text"}), "write KEY=VALUE"},
      {fields({"=x"}), "write KEY=VALUE"},
      {fields({"name=x"}), "an argument of its own"},
      {fields({"txt=x"}), "did you mean 'text'?"},
      {fields({"text="}), "the stamp has no text"},
      {fields({"text=\xFF"}), "the text is not UTF-8"},
      {fields({"text=a", "text=b"}), "the text is given more than once"},
      {{{"text=x"}, "", "1:1:1:x:0::", ""}, "more than one way"},
      {{{}, "", "1:1:1:x:0", ""}, "refuses the settings string '1:1:1:x:0'"},
      {{{}, "/nonexistent", {}, ""}, "cannot be read"}};
  for (const auto& [options, said] : cases) {
    EXPECT_NE(madeOf(stamp(), options).find(said), std::string::npos) << said;
  }
}

}  // namespace
