// Writers that are killed at any moment: what reported success is there whole, and nothing that is
// not whole counts as an entry.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <map>
#include <random>
#include <string>

#include "host/delivery/delivery_state.h"
#include "host/delivery/local_adapter.h"
#include "tests/unit/host/core/child.h"
#include "tests/unit/host/core/temp_folder.h"
#include "tests/unit/host/delivery/plain_message.h"

namespace {

using host::delivery::AdapterError;
using host::delivery::DeliveryState;
using host::delivery::LocalAdapter;
using host::delivery::SpoolEntry;
using testing_host::PlainMessage;
using testing_host::TempFolder;

constexpr int kDefaultRounds = 50;
constexpr int kMostSuccesses = 6;
constexpr useconds_t kLongestRestMicroseconds = 5'000;

int rounds() {
  const char* wanted = std::getenv("KAVI_CRASH_ROUNDS");
  return wanted != nullptr ? std::atoi(wanted) : kDefaultRounds;
}

// The bytes of a message tell its name, so that a reader can check every one of them.
std::string bytesOf(const std::string& name) {
  std::string bytes = "Subject: " + name + "\r\n\r\n";
  while (bytes.size() < 150'000) bytes += name + " ";
  return bytes;
}

// Postpones and deletes messages until it is killed, and tells each success through the pipe.
[[noreturn]] void writeUntilKilled(const std::string& folder, int round, int report) {
  DeliveryState state;
  if (state.open(folder) != AdapterError::None) ::_exit(1);
  LocalAdapter adapter(state);
  for (int number = 0;; ++number) {
    const std::string name = std::to_string(round) + "." + std::to_string(number);
    PlainMessage message(bytesOf(name));
    message.setId(name);
    message.setEnvelope(name + "@example.org", {"a@example.org", name + "@example.com"});
    unsigned int error = 0;
    const bool postpones = number % 4 != 3;
    const int result = postpones ? adapter.postponeMessage(error, &message, 8, 30, 23, 59)
                                 : adapter.deleteMessage(error, &message);
    if (result != 0) ::_exit(2);
    const std::string line = (postpones ? "P" : "D") + name + "\n";
    if (::write(report, line.data(), line.size()) != static_cast<ssize_t>(line.size())) ::_exit(3);
  }
}

// When a writer dies: so many reported successes and then a moment into its life.
struct Death {
  int successes;
  useconds_t rest;
};

// Appends what the writer tells to `reported`; false at its end.
bool readReport(int report, std::string& reported) {
  char buffer[4096];
  const ssize_t got = ::read(report, buffer, sizeof buffer);
  if (got > 0) reported.append(buffer, static_cast<std::size_t>(got));
  return got > 0;
}

// Runs one writer until its death. `reported` receives what it told, complete lines only.
void crashOneWriter(const std::string& folder, int round, const Death& death,
                    std::string& reported) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const pid_t writer = ::fork();
  ASSERT_GE(writer, 0);
  if (writer == 0) {
    ::close(ends[0]);
    writeUntilKilled(folder, round, ends[1]);
  }
  ::close(ends[1]);
  const auto successes = [&reported] { return std::count(reported.begin(), reported.end(), '\n'); };
  while (successes() < death.successes && readReport(ends[0], reported)) {
  }
  // The moment of death is the variable of this test, so here is no event to wait for.
  ::usleep(death.rest);
  ASSERT_EQ(::kill(writer, SIGKILL), 0);
  while (readReport(ends[0], reported)) {
  }
  ::close(ends[0]);
  int status = 0;
  ASSERT_EQ(::waitpid(writer, &status, 0), writer);
  ASSERT_TRUE(WIFSIGNALED(status)) << "the writer failed by itself: " << status;
  reported.erase(reported.rfind('\n') + 1);
}

// How often each message is in the spool; every entry must be whole.
std::map<std::string, int> spooledMessages(DeliveryState& state) {
  std::map<std::string, int> found;
  std::vector<std::string> ids;
  EXPECT_EQ(state.spool().list(ids), AdapterError::None);
  for (const std::string& id : ids) {
    SpoolEntry entry;
    std::string bytes;
    EXPECT_EQ(state.spool().read(id, entry, bytes), AdapterError::None) << id;
    EXPECT_EQ(bytes, bytesOf(entry.messageId));
    EXPECT_EQ(entry.envelope.sender, entry.messageId + "@example.org");
    EXPECT_EQ(entry.envelope.recipients.size(), 2u);
    ++found[entry.messageId];
  }
  return found;
}

void checkReports(const std::string& reported, const std::map<std::string, int>& spooled,
                  const std::string& decisions) {
  for (std::size_t at = 0; at < reported.size();) {
    const std::size_t end = reported.find('\n', at);
    const std::string name = reported.substr(at + 1, end - at - 1);
    if (reported[at] == 'P') {
      const auto entry = spooled.find(name);
      EXPECT_EQ(entry == spooled.end() ? 0 : entry->second, 1) << name;
    } else {
      EXPECT_NE(decisions.find("\"message_id\":\"" + name + "\""), std::string::npos) << name;
    }
    at = end + 1;
  }
}

TEST(SpoolCrash, LosesNothingThatWasReportedAndCountsNothingUnfinished) {
  std::mt19937 random(20240506);
  std::uniform_int_distribution<int> successes(0, kMostSuccesses);
  std::uniform_int_distribution<useconds_t> rest(0, kLongestRestMicroseconds);
  std::size_t reportedBytes = 0;
  std::size_t unfinished = 0;
  const int wanted = rounds();
  ASSERT_GT(wanted, 0);
  for (int round = 0; round < wanted; ++round) {
    const TempFolder temp;
    std::string reported;
    crashOneWriter(temp.path(), round, {successes(random), rest(random)}, reported);
    if (HasFatalFailure()) return;
    reportedBytes += reported.size();
    DeliveryState state;
    ASSERT_EQ(state.open(temp.path()), AdapterError::None);
    const auto spooled = spooledMessages(state);
    unfinished += testing_host::entryCount(temp / "spool") - spooled.size();
    checkReports(reported, spooled, testing_host::contentOf(temp / "decisions.jsonl"));
    if (HasFailure()) return;
  }
  // The test would show nothing if no writer had come far enough.
  EXPECT_GT(reportedBytes, 0u);
  std::cout << reportedBytes << " bytes of reports, " << unfinished << " unfinished files\n";
}

}  // namespace
