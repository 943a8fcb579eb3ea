// Quarantine and archive on real folders, with an index in memory.
#include "host/delivery/filing.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <ctime>

#include "tests/unit/host/delivery/filing_bench.h"

namespace {

using host::delivery::AdapterError;
using host::message::Buffer;
using host::message::Message;
using host::store::IndexEntry;
using host::store::MessageKind;
using Kavi::ScanToken;
using testing_host::Answer;
using testing_host::archive;
using testing_host::contentOf;
using testing_host::filesBelow;
using testing_host::quarantine;
using testing_host::Tokens;
using Files = std::vector<std::string>;

using Filing = testing_host::FilingTest;

unsigned int modeOf(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777u : 0;
}

TEST_F(Filing, PutsAQuarantinedMessageWhereItsIdSays) {
  const Answer answer = quarantineIt();
  EXPECT_TRUE(answer.ok());
  EXPECT_EQ(answer.path, bench_.folder + "/a/b/abc123.DF");
  EXPECT_EQ(contentOf(answer.path), bench_.message.bytes());
  EXPECT_EQ(filesBelow(bench_.folder), Files{"a/b/abc123.DF"});
}

TEST_F(Filing, PutsAnArchivedMessageIntoTheFolderOfItsArea) {
  EXPECT_TRUE(archiveIt("Sales / 2024").ok());
  EXPECT_EQ(filesBelow(bench_.folder), Files{"Sales %2F 2024/abc123.eml"});
  EXPECT_EQ(contentOf(bench_.folder + "/Sales %2F 2024/abc123.eml"), bench_.message.bytes());
}

TEST_F(Filing, LetsOnlyItsUserIn) {
  const mode_t before = ::umask(0);
  EXPECT_TRUE(quarantineIt().ok());
  EXPECT_TRUE(archiveIt().ok());
  ::umask(before);
  for (const char* folder : {"a", "a/b", "Sales"}) {
    EXPECT_EQ(modeOf(bench_.folder + "/" + folder), 0700u) << folder;
  }
  for (const char* file : {"a/b/abc123.DF", "Sales/abc123.eml"}) {
    EXPECT_EQ(modeOf(bench_.folder + "/" + file), 0600u) << file;
  }
}

TEST_F(Filing, WritesARowForAQuarantinedMessage) {
  Tokens tokens;
  tokens.set(ScanToken::RuleId, "15");
  tokens.set(ScanToken::QuarantineAgingDays, "30");
  tokens.set(ScanToken::QuarantineArea, "Viruses");
  const std::string bytes = "Subject: =?utf-8?q?gr=C3=BC=C3=9Fe?=\r\n\r\nbody\r\n";
  const auto message = Message::parse(Buffer::copyOf(bytes));
  message->setEnvelope({"a@example.org", {"b@example.org", "c@example.org"}, {}});
  ASSERT_EQ(adapter_.beginMessage(*message, bytes, tokens), AdapterError::None);
  const std::time_t before = std::time(nullptr);
  const Answer answer = quarantine(adapter_, *message, bench_.folder);
  ASSERT_TRUE(answer.ok());
  const auto rows = bench_.rows();
  ASSERT_EQ(rows.size(), 1u);
  IndexEntry expected;
  expected.row = rows[0].row;
  expected.kind = MessageKind::Quarantined;
  expected.area = "Viruses";
  expected.messageId = message->id();
  expected.rule = "15";
  expected.agingDays = 30;
  expected.sender = "a@example.org";
  expected.recipients = {"b@example.org", "c@example.org"};
  expected.subject = "grüße";
  expected.size = bytes.size();
  expected.storedAt = rows[0].storedAt;
  expected.path = answer.path;
  EXPECT_EQ(rows[0], expected);
  EXPECT_GE(rows[0].storedAt, before);
  EXPECT_LE(rows[0].storedAt, std::time(nullptr));
}

TEST_F(Filing, WritesARowForAnArchivedMessage) {
  Tokens tokens;
  tokens.set(ScanToken::RuleId, "7");
  tokens.set(ScanToken::QuarantineAgingDays, "30");
  tokens.set(ScanToken::ArchiveAgingDays, "");
  tokens.set(ScanToken::ArchiveAreaName, "Sales");
  ASSERT_EQ(adapter_.beginMessage(bench_.message, bench_.message.bytes(), tokens),
            AdapterError::None);
  bench_.message.setEnvelope("", {});
  ASSERT_TRUE(archiveIt().ok());
  const auto rows = bench_.rows();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].kind, MessageKind::Archived);
  EXPECT_EQ(rows[0].area, "Sales");
  EXPECT_EQ(rows[0].rule, "7");
  EXPECT_EQ(rows[0].agingDays, std::nullopt);
  EXPECT_EQ(rows[0].sender, "");
  EXPECT_EQ(rows[0].path, bench_.folder + "/Sales/abc123.eml");
}

TEST_F(Filing, TakesAnAgingThatIsNoNumberForNone) {
  for (const char* days : {"", "x", "3x", " 3", "-1", "4294967296"}) {
    Tokens tokens;
    tokens.set(ScanToken::QuarantineAgingDays, days);
    ASSERT_EQ(adapter_.beginMessage(bench_.message, {}, tokens), AdapterError::None);
    ASSERT_TRUE(quarantineIt().ok());
    EXPECT_EQ(bench_.rows().back().agingDays, std::nullopt) << days;
  }
}

TEST_F(Filing, KeepsAreasApartThatTheActionCutsToTheSameName) {
  const std::string common(255, 'x');
  for (const std::string& area : {common + "1", common + "2", std::string("a\0b", 3)}) {
    Tokens tokens;
    tokens.set(ScanToken::ArchiveAreaName, area);
    ASSERT_EQ(adapter_.beginMessage(bench_.message, {}, tokens), AdapterError::None);
    ASSERT_TRUE(archiveIt(area.c_str()).ok());
    EXPECT_EQ(bench_.rows().back().area, area);
  }
  EXPECT_EQ(filesBelow(bench_.folder).size(), 3u);
}

TEST_F(Filing, BelievesTheActionWhenTheTokenNamesAnotherArea) {
  Tokens tokens;
  tokens.set(ScanToken::ArchiveAreaName, "Elsewhere");
  ASSERT_EQ(adapter_.beginMessage(bench_.message, {}, tokens), AdapterError::None);
  ASSERT_TRUE(archiveIt("Sales").ok());
  EXPECT_EQ(bench_.rows().back().area, "Sales");
}

TEST_F(Filing, NeverLeavesItsFolder) {
  const std::string names[] = {
      "..",   ".",   "../..",   "/etc",  "a/../../b", std::string(255, '.'),
      "\xFF", "%2F", ".hidden", "~root", "",          std::string(255, '/')};
  for (const std::string& name : names) {
    EXPECT_TRUE(archiveIt(name).ok()) << name;
    bench_.message.setId(name);
    EXPECT_TRUE(quarantineIt().ok()) << name;
  }
  std::size_t below = 0;
  for (const std::string& file : filesBelow(bench_.temp.path())) {
    if (file.starts_with("q/")) ++below;
  }
  EXPECT_EQ(below, 2 * std::size(names));
  EXPECT_EQ(testing_host::entryCount(bench_.temp.path()), 2u) << "the folder and the state";
}

TEST_F(Filing, NumbersTheCopiesOfOneMessage) {
  EXPECT_EQ(quarantineIt().path, bench_.folder + "/a/b/abc123.DF");
  EXPECT_EQ(quarantineIt().path, bench_.folder + "/a/b/abc123~2.DF");
  EXPECT_EQ(quarantineIt().path, bench_.folder + "/a/b/abc123~3.DF");
  EXPECT_EQ(bench_.rows().size(), 3u);
}

TEST_F(Filing, NeverReplacesAFile) {
  std::filesystem::create_directories(bench_.folder + "/a/b");
  testing_host::writeFile(bench_.folder + "/a/b/abc123.DF", "somebody's");
  EXPECT_EQ(quarantineIt().path, bench_.folder + "/a/b/abc123~2.DF");
  EXPECT_EQ(contentOf(bench_.folder + "/a/b/abc123.DF"), "somebody's");
}

TEST_F(Filing, TakesAPathOf519BytesAndNoLongerOne) {
  const std::string rest = "/a/b/abc123.DF";
  for (const std::size_t length : {519u, 520u, 600u}) {
    std::string folder = bench_.folder;
    while (folder.size() + 201 < length - rest.size()) folder += "/" + std::string(200, 'd');
    if (folder.size() + rest.size() < length) {
      folder += "/" + std::string(length - rest.size() - folder.size() - 1, 'e');
    }
    ASSERT_EQ(folder.size() + rest.size(), length);
    std::filesystem::create_directories(folder);
    const Answer answer = quarantine(adapter_, bench_.message, folder);
    if (length == 519) {
      EXPECT_TRUE(answer.ok());
      EXPECT_EQ(answer.path, folder + rest);
    } else {
      EXPECT_NE(answer.result, 0);
      EXPECT_EQ(answer.error, AdapterError::PathTooLong);
      EXPECT_EQ(answer.path, "");
      EXPECT_TRUE(std::filesystem::is_empty(folder));
    }
  }
  EXPECT_EQ(bench_.rows().size(), 1u);
}

TEST_F(Filing, RefusesAnArchivePathThatNoIndexCanHold) {
  for (const std::size_t length : {1500u, 2000u}) {
    Tokens tokens;
    tokens.set(ScanToken::ArchiveAreaName, std::string(length, 'x'));
    ASSERT_EQ(adapter_.beginMessage(bench_.message, {}, tokens), AdapterError::None);
    const Answer answer = archiveIt(std::string(255, 'x'));
    EXPECT_EQ(answer.error, length == 1500 ? AdapterError::None : AdapterError::PathTooLong);
  }
  EXPECT_EQ(bench_.rows().size(), 1u);
}

TEST_F(Filing, TakesRelativeFoldersAndSlashesAtTheEnd) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(bench_.temp.path());
  const Answer answer = quarantine(adapter_, bench_.message, "q//");
  std::filesystem::current_path(before);
  ASSERT_TRUE(answer.ok());
  EXPECT_TRUE(std::filesystem::path(answer.path).is_absolute());
  EXPECT_TRUE(answer.path.ends_with("/q/a/b/abc123.DF")) << answer.path;
  EXPECT_EQ(bench_.rows()[0].path, answer.path);
  EXPECT_TRUE(std::filesystem::exists(answer.path));
}

TEST_F(Filing, RefusesNothingToFileOrNowhereToFileIt) {
  unsigned int error = 0;
  char path[kQuarantinePathSize] = "before";
  EXPECT_NE(adapter_.quarantineMessage(error, nullptr, "", bench_.folder.c_str(), path), 0);
  EXPECT_EQ(error, 1u);
  EXPECT_STREQ(path, "");
  EXPECT_NE(adapter_.quarantineMessage(error, &bench_.message, "", nullptr, path), 0);
  EXPECT_EQ(error, 1u);
  EXPECT_EQ(quarantine(adapter_, bench_.message, "").error, AdapterError::InvalidArgument);
  char area[kArchiveAreaNameSize];
  std::fill(std::begin(area), std::end(area), 'x');
  EXPECT_NE(adapter_.archiveMessage(error, &bench_.message, "", bench_.folder.c_str(), area), 0);
  EXPECT_EQ(error, 1u) << "a name without an end";
  EXPECT_NE(adapter_.archiveMessage(error, nullptr, "", bench_.folder.c_str(), area), 0);
  EXPECT_TRUE(filesBelow(bench_.folder).empty());
}

TEST_F(Filing, SaysThatTheFolderIsMissing) {
  EXPECT_EQ(quarantine(adapter_, bench_.message, bench_.temp / "nowhere").error,
            AdapterError::MissingFolder);
  EXPECT_EQ(archive(adapter_, bench_.message, bench_.temp / "nowhere", "x").error,
            AdapterError::MissingFolder);
  EXPECT_FALSE(std::filesystem::exists(bench_.temp / "nowhere"));
  EXPECT_TRUE(bench_.rows().empty());
}

TEST_F(Filing, RefusesALinkInTheWayOfAFolder) {
  std::filesystem::create_directory(bench_.temp / "outside");
  std::filesystem::create_symlink(bench_.temp / "outside", bench_.folder + "/a");
  const Answer answer = quarantineIt();
  EXPECT_NE(answer.result, 0);
  EXPECT_EQ(answer.error, AdapterError::MissingFolder);
  EXPECT_TRUE(std::filesystem::is_empty(bench_.temp / "outside"));
}

TEST_F(Filing, FilesNothingOfAMessageThatCannotBeWritten) {
  bench_.message.failRenderingAt(10);
  EXPECT_EQ(quarantineIt().error, AdapterError::MessageUnreadable);
  bench_.message = testing_host::PlainMessage();
  bench_.message.claimSize(5);
  EXPECT_EQ(archiveIt().error, AdapterError::MessageUnreadable);
  EXPECT_TRUE(filesBelow(bench_.folder).empty());
  EXPECT_TRUE(bench_.rows().empty());
}

// Of subjects that declare no charset.
TEST_F(Filing, ReadsRawSubjectsAsUtf8OrInTheCharsetOfTheMail) {
  const std::pair<std::string, std::string> cases[] = {
      {"Subject: gr\xC3\xBC\xC3\x9F"
       "e\r\n\r\n",
       "grüße"},
      {"Subject: gr\xC3\xBC\xC3\x9F"
       "e\r\nContent-Type: text/plain; charset=koi8-r\r\n\r\n",
       "grüße"},
      {"Subject: \xC4\xC1\r\nContent-Type: text/plain; charset=koi8-r\r\n\r\n", "да"},
      {"Subject: \x93\xFA\x96\x7B\r\nContent-Type: text/plain; charset=shift_jis\r\n\r\n", "日本"},
      {"Subject: gr\xFC\xDF"
       "e\r\n\r\n",
       "grüße"},
      {"Subject: gr\xFC\xDF"
       "e\r\nContent-Type: text/plain; charset=nonsense\r\n\r\n",
       "grüße"},
  };
  for (const auto& [mail, subject] : cases) {
    testing_host::FilingBench bench;
    host::delivery::LocalAdapter adapter(bench.state);
    const auto message = Message::parse(Buffer::copyOf(mail));
    ASSERT_TRUE(quarantine(adapter, *message, bench.folder).ok());
    EXPECT_EQ(bench.rows().at(0).subject, subject);
  }
}

TEST_F(Filing, CutsALongSubjectBetweenCharacters) {
  std::string subject = "x";
  while (subject.size() < 20'000) subject += "字";
  const auto message = Message::parse(Buffer::copyOf("Subject: " + subject + "\r\n\r\n"));
  ASSERT_TRUE(quarantine(adapter_, *message, bench_.folder).ok());
  const std::string kept = bench_.rows()[0].subject;
  EXPECT_LE(kept.size(), 8192u);
  EXPECT_GT(kept.size(), 8192u - 4);
  EXPECT_TRUE(subject.starts_with(kept));
  EXPECT_EQ(kept.size() % 3, 1u);
}

TEST_F(Filing, FlushesFileFolderAndEveryFolderAboveANewOne) {
  bench_.ops.failCall(0, 0);
  ASSERT_TRUE(quarantineIt().ok());
  EXPECT_EQ(bench_.ops.calls(),
            (std::vector<std::string>{
                "openFolder",                                              // the folder itself
                "openFolder", "makeFolder", "openFolder", "sync",          // "a" in it
                "openFolder", "makeFolder", "openFolder", "sync",          // "a/b"
                "openFile",                                                // is the name free?
                "openFile", "lock", "write", "sync", "rename", "sync"}));  // file and folder
  EXPECT_EQ(bench_.store->calls(), (std::vector<std::string>{"addEntry"}));
  bench_.ops.failCall(0, 0);
  bench_.message.setId("abd");
  ASSERT_TRUE(quarantineIt().ok());
  EXPECT_EQ(std::count(bench_.ops.calls().begin(), bench_.ops.calls().end(), "sync"), 2)
      << "folders that were flushed once are durable";
}

TEST_F(Filing, FlushesAFolderThatSomebodyElseMade) {
  std::filesystem::create_directories(bench_.folder + "/a/b");
  bench_.ops.failCall(0, 0);
  ASSERT_TRUE(quarantineIt().ok());
  EXPECT_EQ(std::count(bench_.ops.calls().begin(), bench_.ops.calls().end(), "sync"), 4);
}

}  // namespace
