// Processes that are killed at any moment while they quarantine, archive and postpone. Afterwards
// no unfinished file counts as a message, no row is without its file, every operation that had
// reported success is there whole, and a retry of the one that was cut off ends with one copy.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>

#include "host/store/sqlite_connection.h"
#include "host/store/sqlite_store.h"
#include "tests/unit/host/core/child.h"
#include "tests/unit/host/delivery/filing_bench.h"

namespace {

using host::delivery::AdapterError;
using host::delivery::DeliveryState;
using host::delivery::FinalAnswer;
using host::delivery::LocalAdapter;
using host::delivery::SpoolEntry;
using host::store::IndexEntry;
using host::store::MessageKind;
using testing_host::contentOf;
using testing_host::filesBelow;
using testing_host::PlainMessage;
using testing_host::TempFolder;
using testing_host::Tokens;

constexpr int kDefaultRounds = 100;
constexpr unsigned int kLongestLifeMicroseconds = 200'000;
constexpr unsigned int kMostOperations = 120;
constexpr int kMessages = 12;  // that one writer goes through, at most

int rounds() {
  const char* wanted = std::getenv("KAVI_CRASH_ROUNDS");
  return wanted != nullptr ? std::atoi(wanted) : kDefaultRounds;
}

// Kills its process at one of the file operations, just before it or just behind it.
class KillingOps final : public host::core::FileOps {
 public:
  void killAt(unsigned int operation, bool behind) {
    left_ = operation;
    behind_ = behind;
  }

  int openFolder(const std::string& path, int parent) override {
    return around([&] { return FileOps::openFolder(path, parent); });
  }
  int makeFolder(const std::string& path, int parent) override {
    return around([&] { return FileOps::makeFolder(path, parent); });
  }
  int openFile(int folder, const std::string& name, int flags) override {
    return around([&] { return FileOps::openFile(folder, name, flags); });
  }
  /// One that is cut off has written a part.
  ssize_t write(int file, const char* data, std::size_t size) override {
    if (left_ == 1) FileOps::write(file, data, size / 3);
    return around([&] { return FileOps::write(file, data, size); });
  }
  int sync(int descriptor) override {
    return around([&] { return FileOps::sync(descriptor); });
  }
  int rename(int folder, const std::string& from, const std::string& to) override {
    return around([&] { return FileOps::rename(folder, from, to); });
  }

 private:
  template <class Call>
  auto around(Call call) -> decltype(call()) {
    const bool last = left_ != 0 && --left_ == 0;
    if (last && !behind_) ::kill(::getpid(), SIGKILL);
    const auto result = call();
    if (last) ::kill(::getpid(), SIGKILL);
    return result;
  }

  unsigned int left_ = 0;
  bool behind_ = false;
};

// The name of a message tells its bytes, so that a reader can check every copy.
std::string bytesOf(const std::string& name) {
  std::string bytes = "Subject: " + name + "\r\n\r\n";
  while (bytes.size() < 100'000) bytes += name + " ";
  return bytes;
}

char operationOf(int number) { return "QAP"[number % 3]; }

// One attempt at one message; ids differ from attempt to attempt, as the host gives them.
bool runAttempt(DeliveryState& state, const std::string& folder, const std::string& name,
                char operation, const std::string& attempt, std::string& path) {
  const std::string bytes = bytesOf(name);
  PlainMessage message(bytes);
  message.setId(attempt + name);
  message.setEnvelope(name + "@example.org", {"a@example.org", name + "@example.com"});
  LocalAdapter adapter(state);
  Tokens tokens;
  tokens.set(Kavi::ScanToken::RuleId, "15");
  if (adapter.beginMessage(message, bytes, tokens) != AdapterError::None) return false;
  if (adapter.beginAction(15, 0, "7") != AdapterError::None) return false;
  unsigned int error = 0;
  char stored[kQuarantinePathSize] = {};
  const char area[kArchiveAreaNameSize] = "Sales";
  switch (operation) {
    case 'Q':
      adapter.quarantineMessage(error, &message, "", folder.c_str(), stored);
      break;
    case 'A':
      adapter.archiveMessage(error, &message, "", folder.c_str(), area);
      break;
    default:
      adapter.postponeMessage(error, &message, 8, 30, 23, 59);
  }
  path = stored;
  // The answer to the sender got lost, as it does when the process dies: it will try again.
  adapter.finalAnswer(FinalAnswer::TemporaryFailure);
  return error == 0;
}

unsigned int between(std::mt19937& random, unsigned int least, unsigned int most) {
  return std::uniform_int_distribution<unsigned int>(least, most)(random);
}

struct Plan {
  useconds_t life = 0;         // how long the writer lives; 0: it kills itself
  unsigned int operation = 0;  // at which file operation
  bool behind = false;
};

[[noreturn]] void writeUntilKilled(const TempFolder& temp, int round, const Plan& plan,
                                   int report) {
  KillingOps ops;
  auto store = std::make_shared<host::store::SqliteStore>(temp / "state/store.sqlite");
  DeliveryState state(ops, store);
  if (state.open(temp / "state") != AdapterError::None) ::_exit(1);
  if (plan.life == 0) ops.killAt(plan.operation, plan.behind);
  for (int number = 0; number < kMessages; ++number) {
    const std::string name = std::to_string(round) + "x" + std::to_string(number);
    std::string path;
    if (!runAttempt(state, temp / "q", name, operationOf(number), "f", path)) ::_exit(2);
    const std::string line = operationOf(number) + name + " " + path + "\n";
    if (::write(report, line.data(), line.size()) != static_cast<ssize_t>(line.size())) ::_exit(3);
  }
  // Whoever comes to the end waits for the signal.
  while (plan.life != 0) ::pause();
  ::kill(::getpid(), SIGKILL);
  ::_exit(4);
}

// Runs one writer to its end. `reported` receives what it told, complete lines only.
void crashOneWriter(const TempFolder& temp, int round, const Plan& plan, std::string& reported) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const pid_t writer = ::fork();
  ASSERT_GE(writer, 0);
  if (writer == 0) {
    ::close(ends[0]);
    writeUntilKilled(temp, round, plan, ends[1]);
  }
  ::close(ends[1]);
  if (plan.life != 0) {
    // The moment of death is the variable of this test.
    ::usleep(plan.life);
    ASSERT_EQ(::kill(writer, SIGKILL), 0);
  }
  char buffer[4096];
  for (ssize_t got = 0; (got = ::read(ends[0], buffer, sizeof buffer)) > 0;) {
    reported.append(buffer, static_cast<std::size_t>(got));
  }
  ::close(ends[0]);
  int status = 0;
  ASSERT_EQ(::waitpid(writer, &status, 0), writer);
  ASSERT_TRUE(WIFSIGNALED(status)) << "the writer failed by itself: " << status;
  reported.erase(reported.rfind('\n') + 1);
}

class FilingCrash : public ::testing::Test {
 protected:
  // What is in folder, index and spool; all of it has to be whole.
  void readBack(DeliveryState& state) {
    rows_.clear();
    spooled_.clear();
    waiting_.clear();
    ASSERT_TRUE(state.store()->list({{}, {}, 0, 1000}, rows_).ok());
    for (const IndexEntry& row : rows_) {
      const std::string name = row.messageId.substr(1);
      const bool waits = row.kind == MessageKind::Postponed;
      if (waits) {
        EXPECT_TRUE(contentOf(row.path).ends_with("\n" + bytesOf(name))) << row.path;
        EXPECT_EQ(row.rule, "15");
        ++waiting_[name];
      } else {
        EXPECT_EQ(contentOf(row.path), bytesOf(name)) << row.path;
      }
      EXPECT_EQ(row.size, bytesOf(name).size());
      EXPECT_EQ(row.sender, name + "@example.org");
      EXPECT_EQ(row.recipients.size(), 2u);
    }
    std::vector<std::string> ids;
    ASSERT_EQ(state.spool().list(ids), AdapterError::None);
    for (const std::string& id : ids) {
      SpoolEntry entry;
      std::string bytes;
      EXPECT_EQ(state.spool().read(id, entry, bytes), AdapterError::None) << id;
      EXPECT_EQ(bytes, bytesOf(entry.messageId.substr(1)));
      ++spooled_[entry.messageId.substr(1)];
    }
  }

  int copiesOf(const std::string& name, char operation) const {
    if (operation == 'P') {
      const auto entry = spooled_.find(name);
      return entry == spooled_.end() ? 0 : entry->second;
    }
    int copies = 0;
    for (const IndexEntry& row : rows_) {
      const bool archived = row.kind == MessageKind::Archived;
      if (row.messageId.substr(1) == name && archived == (operation == 'A')) ++copies;
    }
    return copies;
  }

  // Files of messages that have no row; those are what a crash may leave.
  std::size_t filesWithoutRow(const std::string& folder) const {
    std::set<std::string> known;
    for (const IndexEntry& row : rows_) known.insert(row.path);
    std::size_t strangers = 0;
    for (const std::string& file : filesBelow(folder)) {
      if (file[0] == '!') continue;
      if (!known.contains(folder + "/" + file)) {
        ++strangers;
        const std::string stem = std::filesystem::path(file).stem().string();
        EXPECT_EQ(contentOf(folder + "/" + file), bytesOf(stem.substr(1))) << "renamed, so whole";
      }
    }
    return strangers;
  }

  // At the next start every postponed message has its row.
  void checkSpoolSweep(DeliveryState& state) {
    const std::size_t without = spooled_.size() - waiting_.size();
    EXPECT_LE(without, 1u) << "no more than the one that was cut off";
    spooledWithoutRow_ += without;
    host::delivery::SpoolSweepReport report;
    std::string fault;
    EXPECT_EQ(state.prepareSpool(report, fault), AdapterError::None) << fault;
    EXPECT_EQ(report.rowsRemoved, 0u);
    EXPECT_EQ(report.rowsAdded, without);
    readBack(state);
    EXPECT_EQ(waiting_, spooled_);
  }

  void checkReports(const std::string& reported) {
    std::istringstream lines(reported);
    for (std::string line; std::getline(lines, line);) {
      const std::string name = line.substr(1, line.find(' ') - 1);
      const std::string path = line.substr(line.find(' ') + 1);
      EXPECT_EQ(copiesOf(name, line[0]), 1) << line;
      if (line[0] == 'P') {
        EXPECT_EQ(waiting_[name], 1) << line;
      }
      if (line[0] == 'Q') {
        EXPECT_EQ(contentOf(path), bytesOf(name)) << line;
      }
      ++reports_;
    }
  }

  std::vector<IndexEntry> rows_;
  std::map<std::string, int> spooled_;
  std::map<std::string, int> waiting_;  ///< those with a row
  int reports_ = 0;
  std::size_t spooledWithoutRow_ = 0;
};

TEST_F(FilingCrash, LosesNothingThatWasReportedAndCountsNothingUnfinished) {
  std::mt19937 random(20240507);
  const int wanted = rounds();
  ASSERT_GT(wanted, 0);
  std::size_t strangers = 0;
  std::size_t unfinished = 0;
  for (int round = 0; round < wanted; ++round) {
    const TempFolder temp;
    std::filesystem::create_directory(temp / "q");
    Plan plan;
    if (round % 2 == 0) {
      plan.operation = between(random, 1, kMostOperations);
      plan.behind = random() % 2 == 0;
    } else {
      plan.life = between(random, 1, kLongestLifeMicroseconds);
    }
    std::string reported;
    crashOneWriter(temp, round, plan, reported);
    if (HasFatalFailure()) return;

    DeliveryState state;
    ASSERT_EQ(state.open(temp / "state"), AdapterError::None);
    readBack(state);
    if (HasFatalFailure()) return;
    checkReports(reported);
    checkSpoolSweep(state);
    const std::size_t left = filesWithoutRow(temp / "q");
    EXPECT_LE(left, 1u) << "no more than the one that was cut off";
    strangers += left;
    for (const std::string& file : filesBelow(temp / "q")) {
      if (file[0] == '!') ++unfinished;
    }
    if (HasFailure()) {
      ADD_FAILURE() << "round " << round << ", life " << plan.life << ", operation "
                    << plan.operation << (plan.behind ? " behind" : " before");
      return;
    }
  }
  // The test would show nothing if no writer had come far enough, or none too far.
  EXPECT_GT(reports_, wanted);
  EXPECT_GT(strangers, 0u);
  EXPECT_GT(spooledWithoutRow_, 0u);
  EXPECT_GT(unfinished, 0u);
  RecordProperty("reported", reports_);
  RecordProperty("without_row", static_cast<int>(strangers));
  RecordProperty("unfinished", static_cast<int>(unfinished));
}

// The sender tries again what it got no answer for; the lease of the dead attempt is over by then.
TEST_F(FilingCrash, EndsWithOneCopyForARetry) {
  std::mt19937 random(20240508);
  const int wanted = std::max(1, rounds() / 10);
  int retries = 0;
  for (int round = 0; round < wanted; ++round) {
    const TempFolder temp;
    std::filesystem::create_directory(temp / "q");
    Plan plan;
    plan.operation = between(random, 8, kMostOperations);
    plan.behind = random() % 2 == 0;
    std::string reported;
    crashOneWriter(temp, round, plan, reported);
    if (HasFatalFailure()) return;

    {
      host::store::SqliteStore made(temp / "state/store.sqlite");
      ASSERT_TRUE(made.prepare().ok());
      host::store::SqliteConnection aged(temp / "state/store.sqlite", 1000);
      aged.database().exec("UPDATE effect_ledger SET leased_until = 0");
    }
    DeliveryState state;
    ASSERT_EQ(state.open(temp / "state"), AdapterError::None);
    const auto done = static_cast<int>(std::count(reported.begin(), reported.end(), '\n'));
    for (int number = 0; number < std::min(done + 1, kMessages); ++number) {
      const std::string name = std::to_string(round) + "x" + std::to_string(number);
      std::string path;
      EXPECT_TRUE(runAttempt(state, temp / "q", name, operationOf(number), "r", path)) << name;
      ++retries;
    }
    readBack(state);
    if (HasFatalFailure()) return;
    for (int number = 0; number < std::min(done + 1, kMessages); ++number) {
      const std::string name = std::to_string(round) + "x" + std::to_string(number);
      EXPECT_EQ(copiesOf(name, operationOf(number)), 1) << name << " of round " << round;
    }
    EXPECT_EQ(filesWithoutRow(temp / "q"), 0u) << "round " << round;
    EXPECT_EQ(waiting_, spooled_) << "round " << round;
    if (HasFailure()) return;
  }
  EXPECT_GT(retries, wanted);
}

}  // namespace
