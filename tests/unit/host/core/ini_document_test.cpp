#include "host/core/ini_document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "library/platform/config_file_on_disk.h"
#include "tests/unit/host/core/child.h"
#include "tests/unit/host/core/cpu_time.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using host::core::IniDocument;
using testing_host::TempFolder;
using testing_host::writeFile;

std::string valueOf(const IniDocument& document, const char* section, const char* key) {
  const std::string* value = document.find(section, key);
  return value != nullptr ? *value : "(none)";
}

std::string faultsOf(const std::string& text) {
  IniDocument document;
  std::string error;
  EXPECT_FALSE(document.parse(text, "kavi.ini", error));
  return error;
}

TEST(IniDocument, ReadsSectionsKeysAndComments) {
  IniDocument document;
  std::string error;
  ASSERT_TRUE(
      document.parse("\xEF\xBB\xBF"
                     "before = any section\n"
                     "; a comment\n"
                     "\t# another\r\n"
                     "[general]\r"
                     "  locale =  ja  \n"
                     "path=/var/kavi=1;2#3\n"
                     "empty =\n"
                     "\n"
                     "[ General-Notification ]\n"
                     "PreferredCharset = \"utf-8\"",
                     "kavi.ini", error))
      << error;
  EXPECT_EQ(valueOf(document, "", "before"), "any section");
  EXPECT_EQ(valueOf(document, "general", "locale"), "ja");
  EXPECT_EQ(valueOf(document, "general", "path"), "/var/kavi=1;2#3");
  EXPECT_EQ(valueOf(document, "general", "empty"), "");
  EXPECT_EQ(valueOf(document, "General-Notification", "PreferredCharset"), "\"utf-8\"");
  EXPECT_EQ(valueOf(document, "general", "PreferredCharset"), "(none)");
}

TEST(IniDocument, ComparesNamesWithoutCase) {
  IniDocument document;
  std::string error;
  ASSERT_TRUE(document.parse("[General]\nLocale=ja\n[GENERAL]\nother=1\n", "x", error));
  EXPECT_EQ(valueOf(document, "general", "LOCALE"), "ja");
  EXPECT_EQ(valueOf(document, "general", "other"), "1");
}

TEST(IniDocument, NamesFileLineAndRemedyOfEveryFault) {
  EXPECT_EQ(faultsOf("[a]\njunk\nk=1\nmore \x1B junk\n"),
            "kavi.ini:2: 'junk' is no section, key or comment; write [section], key = value, or "
            "put ';' in front\n"
            "kavi.ini:4: 'more \\x1B junk' is no section, key or comment; write [section], key = "
            "value, or put ';' in front");
  EXPECT_EQ(faultsOf("[a]\nk=1\n\n[A]\nK=2\n"),
            "kavi.ini:5: key 'K' of section 'A' was already set in line 2; remove one of the two");
  EXPECT_THAT(faultsOf("[unclosed\n"), ::testing::StartsWith("kavi.ini:1: '[unclosed' is no"));
  EXPECT_THAT(faultsOf("= value\n"), ::testing::StartsWith("kavi.ini:1: '= value' is no"));
  EXPECT_THAT(faultsOf(std::string("a=1\nb=\0x\n", 9)),
              ::testing::StartsWith("kavi.ini:2: the line holds a NUL byte; save"));
}

TEST(IniDocument, ReportsTenFaultsAtMost) {
  std::string text;
  for (int line = 0; line < 1000; ++line) text += "junk\n";
  const std::string faults = faultsOf(text);
  EXPECT_EQ(std::count(faults.begin(), faults.end(), '\n'), 9);
}

TEST(IniDocument, StaysAsItWasWhenATextHasFaults) {
  IniDocument document;
  std::string error;
  ASSERT_TRUE(document.parse("k=1", "x", error));
  EXPECT_FALSE(document.parse("k=2\njunk", "x", error));
  EXPECT_EQ(valueOf(document, "", "k"), "1");
}

TEST(IniDocument, SaysWhyAFileCannotBeRead) {
  const TempFolder folder;
  IniDocument document;
  std::string error;
  EXPECT_FALSE(document.load(folder / "missing.ini", error));
  EXPECT_EQ(error, folder / "missing.ini" +
                       ": cannot be read: No such file or directory; check that the file exists "
                       "and that this user may read it");
  EXPECT_FALSE(document.load(folder.path(), error));
  EXPECT_THAT(error, ::testing::HasSubstr("Is a directory"));
  writeFile(folder / "large.ini", "");
  std::filesystem::resize_file(folder / "large.ini", IniDocument::kMaxBytes + 1);
  EXPECT_FALSE(document.load(folder / "large.ini", error));
  EXPECT_THAT(error, ::testing::HasSubstr("it is larger than 16777216 bytes"));
}

TEST(IniDocument, WaitsForNoPipe) {
  const TempFolder folder;
  ASSERT_EQ(::mkfifo((folder / "pipe.ini").c_str(), 0600), 0);
  IniDocument document;
  std::string error;
  for (const std::string& name : {folder / "pipe.ini", std::string("/dev/zero")}) {
    EXPECT_FALSE(document.load(name, error));
    EXPECT_THAT(error, ::testing::HasSubstr("it is no regular file"));
  }
}

TEST(IniDocument, SaysThatAFileMayNotBeRead) {
  const TempFolder folder;
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  writeFile(folder / "secret.ini", "k=1\n");
  ASSERT_EQ(::chmod((folder / "secret.ini").c_str(), 0), 0);
  EXPECT_EQ(testing_host::inChild([&] {
              if (!testing_host::becomeUnprivileged()) return 1;
              IniDocument document;
              std::string error;
              if (document.load(folder / "secret.ini", error)) return 2;
              if (error.find("Permission denied") == std::string::npos) return 3;
              return Kavi::ConfigFileOnDisk((folder / "secret.ini").c_str()).isLoaded() ? 4 : 0;
            }),
            0);
}

TEST(IniDocument, TakesTimeLinearInTheText) {
  const auto timed = [](int lines) {
    std::string text = "[s]\n";
    for (int line = 0; line < lines; ++line) text += "key" + std::to_string(line) + "=value\n";
    return testing_host::leastCpuSeconds([&text] {
      IniDocument document;
      std::string error;
      EXPECT_TRUE(document.parse(text, "x", error));
    });
  };
  EXPECT_LT(timed(48'000), 100 * timed(3'000));
}

TEST(ConfigFileOnDisk, ReadsAFileAndItsKeys) {
  const TempFolder folder;
  writeFile(folder / "scanner.info", "[update]\nvirus_engine_version=9.8\n");
  const Kavi::ConfigFileOnDisk file((folder / "scanner.info").c_str());
  ASSERT_TRUE(file.isLoaded());
  std::string value = "before";
  EXPECT_FALSE(file.getparam("update", "missing", value));
  EXPECT_FALSE(file.getparam("other", "virus_engine_version", value));
  EXPECT_FALSE(file.getparam(nullptr, "virus_engine_version", value));
  EXPECT_FALSE(file.getparam("update", nullptr, value));
  EXPECT_EQ(value, "before");
  EXPECT_TRUE(file.getparam("update", "virus_engine_version", value));
  EXPECT_EQ(value, "9.8");
}

TEST(ConfigFileOnDisk, IsNotLoadedFromWhatCannotBeRead) {
  const TempFolder folder;
  writeFile(folder / "bad.info", "[update\n");
  std::string value = "before";
  for (const std::string& path : {folder / "missing.info", folder / "bad.info", folder.path()}) {
    const Kavi::ConfigFileOnDisk file(path.c_str());
    EXPECT_FALSE(file.isLoaded()) << path;
    EXPECT_FALSE(file.getparam("update", "virus_engine_version", value));
  }
  EXPECT_FALSE(Kavi::ConfigFileOnDisk(nullptr).isLoaded());
  EXPECT_EQ(value, "before");
}

}  // namespace
