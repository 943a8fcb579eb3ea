#include "host/delivery/recording_adapter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <thread>

#include "host/delivery/adapter_error.h"
#include "tests/unit/host/core/child.h"
#include "tests/unit/host/core/failing_ops.h"
#include "tests/unit/host/core/temp_folder.h"
#include "tests/unit/host/delivery/plain_message.h"

namespace {

using host::delivery::AdapterError;
using host::delivery::RecordingAdapter;
using nlohmann::json;
using testing_host::contentOf;
using testing_host::entryCount;
using testing_host::PlainMessage;
using testing_host::TempFolder;

std::vector<json> callsIn(const std::string& out) {
  std::istringstream text(contentOf(out + "/calls.jsonl"));
  std::vector<json> calls;
  for (std::string line; std::getline(text, line);) calls.push_back(json::parse(line));
  return calls;
}

// Every file under the folder with its content, the list of calls left out.
std::map<std::string, std::string> filesIn(const std::string& out) {
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(out)) {
    const std::string name = entry.path().lexically_relative(out).string();
    if (entry.is_regular_file() && name != "calls.jsonl") files[name] = contentOf(entry.path());
  }
  return files;
}

PlainMessage sample() {
  PlainMessage message("Subject: hello\r\n\r\nbody\r\n");
  message.setEnvelope("a@example.org", {"b@example.org", "c@example.org"});
  return message;
}

TEST(RecordingAdapter, MakesNothingBeforeTheFirstCall) {
  const TempFolder temp;
  const RecordingAdapter adapter(temp / "out", "in.eml");
  EXPECT_EQ(entryCount(temp.path()), 0u);
  EXPECT_TRUE(adapter.calls().empty());
}

TEST(RecordingAdapter, WritesEachOperationIntoItsFolder) {
  const TempFolder temp;
  const std::string out = temp / "out";
  RecordingAdapter adapter(out, "mail/in.eml");
  PlainMessage message = sample();
  unsigned int error = 99;
  char path[kQuarantinePathSize];
  char area[kArchiveAreaNameSize] = "letters";
  std::memset(path, 'x', sizeof path);
  EXPECT_EQ(adapter.deleteMessage(error, &message), 0);
  EXPECT_EQ(error, 0u);
  EXPECT_EQ(adapter.postponeMessage(error, &message, 8, 30, 23, 59), 0);
  EXPECT_EQ(adapter.handoffMessage(error, &message, "192.0.2.1", 25), 0);
  EXPECT_EQ(adapter.quarantineMessage(error, &message, "", "/var/q", path), 0);
  EXPECT_EQ(adapter.archiveMessage(error, &message, "", "/var/a", area), 0);
  EXPECT_EQ(adapter.resendMessage(error, &message, 1), 0);
  EXPECT_EQ(adapter.deliverMessage(error, &message), 0);
  EXPECT_EQ(error, 0u);

  EXPECT_EQ(path, out + "/quarantine/in.eml");
  const auto files = filesIn(out);
  EXPECT_EQ(files.size(), 7u);
  for (const char* folder :
       {"deleted", "postponed", "handoff", "quarantine", "archive", "resend", "delivered"}) {
    const auto file = files.find(std::string(folder) + "/in.eml");
    ASSERT_NE(file, files.end()) << folder;
    EXPECT_EQ(file->second, message.bytes());
  }
  const auto calls = callsIn(out);
  const json expected[] = {
      {{"operation", "delete"}, {"arguments", json::object()}, {"file", "deleted/in.eml"}},
      {{"operation", "postpone"},
       {"arguments", {{"from", "08:30"}, {"to", "23:59"}}},
       {"file", "postponed/in.eml"}},
      {{"operation", "handoff"},
       {"arguments", {{"host", "192.0.2.1"}, {"port", 25}}},
       {"file", "handoff/in.eml"}},
      {{"operation", "quarantine"},
       {"arguments", {{"directory", "/var/q"}}},
       {"file", "quarantine/in.eml"}},
      {{"operation", "archive"},
       {"arguments", {{"directory", "/var/a"}, {"area", "letters"}}},
       {"file", "archive/in.eml"}},
      {{"operation", "resend"}, {"arguments", {{"flag", 1}}}, {"file", "resend/in.eml"}},
      {{"operation", "deliver"}, {"arguments", json::object()}, {"file", "delivered/in.eml"}}};
  ASSERT_EQ(calls.size(), std::size(expected));
  ASSERT_EQ(adapter.calls().size(), std::size(expected));
  for (std::size_t at = 0; at < calls.size(); ++at) {
    json whole = expected[at];
    whole["message_id"] = "0123456789abcdef";
    whole["input"] = "mail/in.eml";
    whole["envelope"] = {{"sender", "a@example.org"},
                         {"recipients", {"b@example.org", "c@example.org"}}};
    whole["result"] = 0;
    whole["error"] = 0;
    EXPECT_EQ(calls[at], whole);
    EXPECT_EQ(adapter.calls()[at].operation, whole["operation"]);
    EXPECT_EQ(adapter.calls()[at].file, whole["file"]);
    EXPECT_EQ(adapter.calls()[at].error, 0u);
  }
}

TEST(RecordingAdapter, MakesFoldersAndFilesForItsOwnerOnly) {
  const TempFolder temp;
  RecordingAdapter adapter(temp / "a/out", "in.eml");
  PlainMessage message = sample();
  unsigned int error = 0;
  ASSERT_EQ(adapter.deleteMessage(error, &message), 0);
  const std::pair<const char*, mode_t> modes[] = {{"a/out", 0700},
                                                  {"a/out/deleted", 0700},
                                                  {"a/out/deleted/in.eml", 0600},
                                                  {"a/out/calls.jsonl", 0600}};
  for (const auto& [name, mode] : modes) {
    struct stat status {};
    ASSERT_EQ(::stat((temp / name).c_str(), &status), 0) << name;
    EXPECT_EQ(status.st_mode & 07777, mode) << name;
  }
}

TEST(RecordingAdapter, GivesTakenNamesANumber) {
  const TempFolder temp;
  PlainMessage message = sample();
  unsigned int error = 0;
  std::set<std::string> files;
  for (int each = 0; each < 60; ++each) {
    RecordingAdapter adapter(temp / "out", "in.eml");
    ASSERT_EQ(adapter.deleteMessage(error, &message), 0);
    files.insert(adapter.calls()[0].file);
  }
  EXPECT_EQ(files.size(), 60u);
  EXPECT_EQ(files.count("deleted/in.eml"), 1u);
  EXPECT_EQ(files.count("deleted/in-2.eml"), 1u);
  EXPECT_EQ(files.count("deleted/in-50.eml"), 1u);
  EXPECT_EQ(entryCount(temp / "out/deleted"), 60u);
}

TEST(RecordingAdapter, WritesNothingOutsideWhateverTheInputIsCalled) {
  const TempFolder temp;
  PlainMessage message = sample();
  unsigned int error = 0;
  for (const std::string& name :
       {std::string("../../escape.eml"), std::string(".."), std::string("/etc/passwd"),
        std::string("a\0/../b", 7), std::string("calls.jsonl"), std::string(5000, 'x'),
        std::string("\xFF\n"), std::string()}) {
    RecordingAdapter adapter(temp / "out", name);
    ASSERT_EQ(adapter.deleteMessage(error, &message), 0) << name;
  }
  EXPECT_EQ(entryCount(temp.path()), 1u);
  EXPECT_EQ(entryCount(temp / "out"), 2u);
  EXPECT_EQ(entryCount(temp / "out/deleted"), 8u);
  EXPECT_EQ(callsIn(temp / "out").size(), 8u);
}

TEST(RecordingAdapter, FollowsNoLinkInItsFolder) {
  const TempFolder temp;
  const TempFolder elsewhere;
  ASSERT_EQ(::symlink(elsewhere.path().c_str(), (temp / "deleted").c_str()), 0);
  RecordingAdapter adapter(temp.path(), "in.eml");
  PlainMessage message = sample();
  unsigned int error = 0;
  EXPECT_NE(adapter.deleteMessage(error, &message), 0);
  EXPECT_NE(error, 0u);
  EXPECT_EQ(entryCount(elsewhere.path()), 0u);
}

TEST(RecordingAdapter, WritesHostileTextsAsOneJsonLine) {
  const TempFolder temp;
  RecordingAdapter adapter(temp.path(), "in\n\xFF.eml");
  PlainMessage message("x");
  message.setId("id\n\"\xFF");
  message.setEnvelope("a\r\n\"@example.org\xFF", {std::string("b\x01")});
  unsigned int error = 0;
  ASSERT_EQ(adapter.handoffMessage(error, &message, "host\n\xFF", 25), 0);
  const auto calls = callsIn(temp.path());
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0]["envelope"]["sender"], "a\\r\\n\"@example.org\\xFF");
  EXPECT_EQ(calls[0]["arguments"]["host"], "host\\n\\xFF");
  EXPECT_EQ(calls[0]["input"], "in\\n\\xFF.eml");
  EXPECT_EQ(calls[0]["message_id"], "id\\n\"\\xFF");
}

TEST(RecordingAdapter, TellsAMissingSenderFromTheNullSender) {
  const TempFolder temp;
  RecordingAdapter adapter(temp.path(), "in.eml");
  PlainMessage none;
  PlainMessage null;
  null.setEnvelope("", {});
  unsigned int error = 0;
  ASSERT_EQ(adapter.deliverMessage(error, &none), 0);
  ASSERT_EQ(adapter.deliverMessage(error, &null), 0);
  const auto calls = callsIn(temp.path());
  EXPECT_TRUE(calls[0]["envelope"]["sender"].is_null());
  EXPECT_EQ(calls[1]["envelope"]["sender"], "");
}

TEST(RecordingAdapter, WritesFailuresDownAndStoresNothing) {
  const TempFolder temp;
  RecordingAdapter adapter(temp.path(), "in.eml");
  PlainMessage message = sample();
  PlainMessage broken(std::string(100, 'x'));
  broken.failRenderingAt(50);
  unsigned int error = 0;
  char path[kQuarantinePathSize] = "before";
  EXPECT_NE(adapter.deleteMessage(error, nullptr), 0);
  EXPECT_EQ(error, 1u);
  EXPECT_NE(adapter.postponeMessage(error, &message, 24, 0, 23, 59), 0);
  EXPECT_EQ(error, 1u);
  EXPECT_NE(adapter.handoffMessage(error, &message, nullptr, 25), 0);
  EXPECT_NE(adapter.handoffMessage(error, &message, "", 25), 0);
  EXPECT_NE(adapter.handoffMessage(error, &message, "host", 0), 0);
  EXPECT_NE(adapter.handoffMessage(error, &message, "host", 65536), 0);
  EXPECT_EQ(error, 1u);
  EXPECT_NE(adapter.quarantineMessage(error, &broken, "", "/var/q", path), 0);
  EXPECT_EQ(error, static_cast<unsigned int>(AdapterError::MessageUnreadable));
  EXPECT_STREQ(path, "");
  char area[kArchiveAreaNameSize];
  std::memset(area, 'x', sizeof area);  // not terminated
  EXPECT_NE(adapter.archiveMessage(error, &message, "", "/var/a", area), 0);
  EXPECT_EQ(filesIn(temp.path()).size(), 0u);
  const auto calls = callsIn(temp.path());
  ASSERT_EQ(calls.size(), 8u);
  for (const json& call : calls) {
    EXPECT_EQ(call["result"], 1);
    EXPECT_NE(call["error"], 0);
    EXPECT_TRUE(call["file"].is_null());
  }
  EXPECT_TRUE(calls[0]["message_id"].is_null());
  for (const auto& call : adapter.calls()) {
    EXPECT_NE(call.error, 0u);
    EXPECT_EQ(call.file, "");
  }
}

TEST(RecordingAdapter, RefusesAQuarantinePathThatDoesNotFit) {
  const TempFolder temp;
  PlainMessage message = sample();
  unsigned int error = 0;
  char path[kQuarantinePathSize];
  // The whole path has 519 bytes, then 520.
  std::string out = temp.path();
  const std::string end = "/quarantine/in.eml";
  while (out.size() + end.size() + 200 < kQuarantinePathSize - 1)
    out += "/" + std::string(150, 'd');
  out += "/" + std::string(kQuarantinePathSize - 2 - out.size() - end.size(), 'd');
  RecordingAdapter fits(out, "in.eml");
  ASSERT_EQ(fits.quarantineMessage(error, &message, "", "/var/q", path), 0);
  EXPECT_EQ(path, out + end);
  EXPECT_EQ(std::strlen(path), 519u);
  out += "d";
  RecordingAdapter tooLong(out, "in.eml");
  EXPECT_NE(tooLong.quarantineMessage(error, &message, "", "/var/q", path), 0);
  EXPECT_EQ(error, static_cast<unsigned int>(AdapterError::PathTooLong));
  EXPECT_STREQ(path, "");
  EXPECT_EQ(entryCount(out + "/quarantine"), 0u);
}

TEST(RecordingAdapter, LeavesNothingWhereverAFileOperationFails) {
  PlainMessage message(std::string(100'000, 'x'));
  for (unsigned int call = 1;; ++call) {
    const TempFolder temp;
    testing_host::FailingOps ops;
    RecordingAdapter adapter(temp / "out", "in.eml", ops);
    ops.failCall(call, ENOSPC);
    unsigned int error = 0;
    const int result = adapter.deleteMessage(error, &message);
    const bool fired = ops.fired();
    if (result == 0) {
      EXPECT_EQ(error, 0u);
      EXPECT_EQ(filesIn(temp / "out").size(), 1u);
      EXPECT_EQ(callsIn(temp / "out").size(), 1u);
    } else {
      EXPECT_NE(error, 0u) << call;
      EXPECT_TRUE(fired);
      if (std::filesystem::exists(temp / "out")) {
        EXPECT_TRUE(filesIn(temp / "out").empty()) << call;
      }
    }
    if (!fired) {
      EXPECT_EQ(result, 0);
      break;
    }
  }
}

TEST(RecordingAdapter, FailsInAFolderThatItMayNotWrite) {
  const TempFolder temp;
  ASSERT_EQ(::chmod(temp.path().c_str(), 0555), 0);
  EXPECT_EQ(testing_host::inChild([&] {
              if (!testing_host::becomeUnprivileged()) return 1;
              PlainMessage message = sample();
              RecordingAdapter adapter(temp / "out", "in.eml");
              unsigned int error = 0;
              if (adapter.deleteMessage(error, &message) == 0) return 2;
              return error == static_cast<unsigned int>(AdapterError::Permission) ? 0 : 3;
            }),
            0);
}

TEST(RecordingAdapter, SharesAFolderWithOthers) {
  const TempFolder temp;
  constexpr int kEach = 50;
  std::vector<std::thread> threads;
  for (int number = 0; number < 8; ++number) {
    threads.emplace_back([&temp, number] {
      for (int each = 0; each < kEach; ++each) {
        PlainMessage message(std::string(2000, static_cast<char>('a' + number)));
        RecordingAdapter adapter(temp / "out", "same.eml");
        unsigned int error = 0;
        EXPECT_EQ(adapter.deliverMessage(error, &message), 0);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::set<std::string> named;
  for (const json& call : callsIn(temp / "out")) named.insert(call["file"].get<std::string>());
  const auto files = filesIn(temp / "out");
  EXPECT_EQ(files.size(), 8u * kEach);
  EXPECT_EQ(named.size(), files.size());
  for (const auto& [name, content] : files) {
    EXPECT_EQ(named.count(name), 1u);
    EXPECT_EQ(content, std::string(2000, content[0]));
  }
}

}  // namespace
