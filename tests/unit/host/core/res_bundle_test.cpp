#include "library/platform/res_bundle.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <sstream>
#include <thread>
#include <vector>

#include "host/core/resource_path.h"
#include "tests/unit/host/core/child.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using Kavi::OvCachedResbundle;
using Kavi::OvResbundle;

std::string textOf(const char* group, const char* id, const char* locale) {
  OvResbundle bundle;
  if (!bundle._init(OvResbundle::GetResourceFileName(), group, locale)) return "(no group)";
  std::string text = "(no text)";
  bundle.getString(id, text);
  return text;
}

TEST(OvResbundle, FindsTheTextsInTheBuildTree) {
  EXPECT_EQ(textOf("IDG_KAVI_UTIL", "AU_NOTIFY_TIMEFORMAT", ""), "%m/%d/%Y %r");
  EXPECT_EQ(textOf("IDG_KAVI_UTIL", "AU_NOTIFY_TIMEFORMAT", "ja"), "%Y/%m/%d %T");
  EXPECT_EQ(textOf("IDG_VIRUS_FILTER", "IDS_VACTION_DELETE_WHOLE_MAIL", ""), "Delete whole mail");
  EXPECT_EQ(textOf("IDG_VIRUS_FILTER", "IDS_VACTION_DELETE_ALL", "en"), "Delete all attachments");
  EXPECT_EQ(textOf("IDG_VIRUS_FILTER", "IDS_VACTION_DELETE", "en_US"),
            "Delete matching attachment");
  EXPECT_EQ(textOf("IDG_VIRUS_FILTER", "IDS_VACTION_DELETE_WHOLE_MAIL", "ja"), "メール全体を削除");
}

TEST(OvResbundle, FallsBackToTheLanguageThenToTheDefault) {
  for (const char* locale : {"ja_JP", "ja-JP", "ja_JP.eucJP", "ja_JP@calendar=japanese"}) {
    EXPECT_EQ(textOf("IDG_VIRUS_FILTER", "IDS_VACTION_DELETE", locale),
              "該当する添付ファイルを削除")
        << locale;
  }
  const std::string longName(5000, 'j');
  for (const char* locale : {"fr", "C", "POSIX", "../ja", "ja/../ja", "\xFF", "", "_", "root",
                             longName.c_str(), static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(textOf("IDG_VIRUS_FILTER", "IDS_VACTION_DELETE", locale),
              "Delete matching attachment");
  }
}

// ICU's own fallback would answer in the language of the process.
TEST(OvResbundle, DoesNotFallBackToTheProcessLocale) {
  EXPECT_EQ(testing_host::inChild([] {
              ::setenv("LC_ALL", "ja_JP.UTF-8", 1);
              ::setenv("LANG", "ja_JP.UTF-8", 1);
              return textOf("IDG_KAVI_UTIL", "AU_NOTIFY_TIMEFORMAT", "fr") == "%m/%d/%Y %r" ? 0 : 1;
            }),
            0);
}

TEST(OvResbundle, AnswersFalseForWhatIsNotThere) {
  OvResbundle bundle;
  std::string text = "before";
  EXPECT_FALSE(bundle.getString("AU_NOTIFY_TIMEFORMAT", text));
  EXPECT_FALSE(bundle._init(nullptr, "IDG_KAVI_UTIL", ""));
  EXPECT_FALSE(bundle._init(OvResbundle::GetResourceFileName(), nullptr, ""));
  EXPECT_FALSE(bundle._init(OvResbundle::GetResourceFileName(), "IDG_NOWHERE", ""));
  EXPECT_FALSE(bundle._init("/nowhere/at/all", "IDG_KAVI_UTIL", ""));
  EXPECT_FALSE(bundle.getString("AU_NOTIFY_TIMEFORMAT", text));
  ASSERT_TRUE(bundle._init(OvResbundle::GetResourceFileName(), "IDG_KAVI_UTIL", ""));
  EXPECT_FALSE(bundle.getString("NOWHERE", text));
  EXPECT_FALSE(bundle.getString(nullptr, text));
  EXPECT_EQ(text, "before");
}

TEST(OvResbundle, DoesNotReadAFileThatIsNoBundle) {
  const testing_host::TempFolder folder;
  testing_host::writeFile(folder / "root.res", "junk, and some more of it so that a head fits");
  OvResbundle bundle;
  EXPECT_FALSE(bundle._init(folder.path().c_str(), "IDG_KAVI_UTIL", ""));
}

TEST(ResourceFolder, IsTheOneThatTheEnvironmentNames) {
  EXPECT_EQ(testing_host::inChild([] {
              ::setenv("KAVI_RESOURCES", "/somewhere/else", 1);
              return host::core::findResourceFolder() == "/somewhere/else" ? 0 : 1;
            }),
            0);
}

TEST(OvCachedResbundle, AnswersInTheProductsLocale) {
  std::string text;
  {
    const OvCachedResbundle bundle("IDG_VIRUS_FILTER");
    ASSERT_TRUE(bundle.getString("IDS_VACTION_DELETE_ALL", text));
    EXPECT_EQ(text, "Delete all attachments");
  }
  host::core::setProductLocale("ja_JP");
  const OvCachedResbundle bundle("IDG_VIRUS_FILTER");
  ASSERT_TRUE(bundle.getString("IDS_VACTION_DELETE_ALL", text));
  EXPECT_EQ(text, "すべての添付ファイルを削除");
  host::core::setProductLocale("");
}

TEST(OvCachedResbundle, FindsNothingInAnUnknownGroup) {
  std::string text = "before";
  EXPECT_FALSE(OvCachedResbundle("IDG_NOWHERE").getString("IDS_VACTION_DELETE_ALL", text));
  EXPECT_FALSE(OvCachedResbundle(nullptr).getString("IDS_VACTION_DELETE_ALL", text));
  EXPECT_EQ(text, "before");
}

TEST(OvCachedResbundle, ServesManyThreads) {
  std::vector<std::thread> threads;
  std::vector<int> found(8, 0);
  for (int& count : found) {
    threads.emplace_back([&count] {
      for (int round = 0; round < 200; ++round) {
        const OvCachedResbundle bundle(round % 2 == 0 ? "IDG_VIRUS_FILTER" : "IDG_KAVI_ACTIONS");
        std::string text;
        count +=
            bundle.getString(round % 2 == 0 ? "IDS_VACTION_DELETE" : "IDS_ACTION_Delete", text);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const int count : found) EXPECT_EQ(count, 200);
}

// Both languages of the committed sources hold the same texts.
TEST(ResourceSources, HoldTheSameIdsInEveryLanguage) {
  const auto idsOf = [](const std::string& name) {
    std::istringstream text(testing_host::contentOf(std::string(RESOURCE_SOURCES) + "/" + name));
    std::vector<std::string> ids;
    for (std::string word; text >> word;) {
      if (word.rfind("ID", 0) == 0 || word.rfind("AU_", 0) == 0) ids.push_back(word);
    }
    return ids;
  };
  const auto english = idsOf("root.txt");
  EXPECT_EQ(english.size(), 3u + 1u + 3u + 18u);
  EXPECT_EQ(idsOf("ja.txt"), english);
}

}  // namespace
