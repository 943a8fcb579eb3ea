// Many processes that change and read one store at once, on a file and on a server: no change is
// lost, no id given twice, nobody told of a lock, and whoever reads sees one whole policy.
// KAVI_STORM_PROCESSES and KAVI_STORM_SECONDS say how many and for how long.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <set>
#include <string>
#include <vector>

#include "host/store/configured_store.h"
#include "host/store/store.h"
#include "tests/e2e/postgres/postgres_server.h"
#include "tests/e2e/store/storm_user.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using namespace host::store;
using storm::User;
using storm::UserState;
using testing_host::TempFolder;

int setting(const char* name, int otherwise) {
  const char* wanted = std::getenv(name);
  return wanted != nullptr ? std::atoi(wanted) : otherwise;
}

std::unique_ptr<Database> open(const std::string& location) {
  StoreStatus status;
  std::unique_ptr<Database> store = makeStore(location, status);
  EXPECT_NE(store, nullptr) << status.text;
  return store;
}

/// One process: works until the time is over, and writes down what it did or why it could not.
int work(const std::string& location, std::uint32_t number, int seconds, const std::string& file) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::seconds(seconds);
  std::string report;
  int result = 0;
  try {
    User user(open(location), number);
    while (Clock::now() < end) user.step();
    report = user.state().text();
  } catch (const std::exception& fault) {
    report = fault.what();
    result = 1;
  }
  configureStore(nullptr, {});
  testing_host::writeFile(file, report);
  return result;
}

std::vector<UserState> storm(const std::string& location, int processes, int seconds) {
  const TempFolder temp;
  std::vector<pid_t> children;
  for (int number = 1; number <= processes; ++number) {
    const pid_t child = ::fork();
    if (child == 0) {
      ::_exit(work(location, static_cast<std::uint32_t>(number), seconds,
                   temp / std::to_string(number)));
    }
    EXPECT_GT(child, 0);
    children.push_back(child);
  }
  std::vector<UserState> states;
  for (std::size_t i = 0; i < children.size(); ++i) {
    int status = 0;
    EXPECT_EQ(::waitpid(children[i], &status, 0), children[i]);
    const std::string report = testing_host::contentOf(temp / std::to_string(i + 1));
    EXPECT_EQ(status, 0) << "user " << i + 1 << ": " << report;
    states.push_back(status == 0 ? UserState::of(report) : UserState{});
  }
  return states;
}

/// What the audit list says that `actor` did, counted by its first words.
std::map<std::string, int> auditOf(PolicyStore& store, const std::string& actor) {
  std::map<std::string, int> done;
  std::int64_t row = 0;
  std::vector<AuditRecord> records;
  std::set<std::int64_t> replaced;
  do {
    records.clear();
    EXPECT_TRUE(store.listAudit(row, 1000, records).ok());
    for (const AuditRecord& record : records) {
      row = record.row;
      if (record.actor != actor) continue;
      const std::string word = record.what.substr(0, record.what.find(' '));
      // A policy that is replaced writes a row for each piece, under one revision.
      const bool isPolicy = record.what.find("rule ") != std::string::npos ||
                            record.what.find("'mark'") != std::string::npos;
      if (!isPolicy) ++done[word];
      if (isPolicy && replaced.insert(record.revision).second) ++done["replace"];
    }
  } while (!records.empty());
  return done;
}

class Storm : public ::testing::Test {
 protected:
  void run(const std::string& location) {
    const int processes = setting("KAVI_STORM_PROCESSES", 6);
    const int seconds = setting("KAVI_STORM_SECONDS", 3);
    // Nobody has made the store: they all do.
    const std::vector<UserState> states = storm(location, processes, seconds);
    ASSERT_FALSE(HasFailure());
    const std::unique_ptr<Database> store = open(location);
    PolicyRecord policy;
    const StoreStatus status = store->readPolicy(policy);
    ASSERT_TRUE(status.ok()) << status.text;
    EXPECT_EQ(storm::faultOf(policy), "");
    std::set<std::uint32_t> ids;
    std::size_t given = 0;
    std::int64_t changes = 0;
    for (std::size_t i = 0; i < states.size(); ++i) {
      const auto number = static_cast<std::uint32_t>(i + 1);
      UserState kept;
      for (const ObjectRecord& object : policy.objects) {
        if (object.owner == number) kept.objects[object.id] = {object.name, object.content};
      }
      EXPECT_EQ(kept.objects, states[i].objects) << "user " << number;
      EXPECT_EQ(auditOf(*store, "user " + std::to_string(number)), states[i].done);
      ids.insert(states[i].given.begin(), states[i].given.end());
      given += states[i].given.size();
      for (const auto& [word, times] : states[i].done) changes += times;
    }
    EXPECT_EQ(ids.size(), given) << "an id was given twice";
    EXPECT_EQ(policy.revision, changes);
    EXPECT_GE(changes, 5 * processes) << "too few to say anything";
    std::vector<std::string> faults;
    EXPECT_TRUE(store->check(faults).ok());
    EXPECT_TRUE(faults.empty()) << ::testing::PrintToString(faults);
    std::cout << processes << " processes, " << seconds << " s, " << changes << " changes\n";
  }

  TempFolder temp_;
};

TEST_F(Storm, OnAFile) { run("sqlite:" + temp_ / "store"); }

TEST_F(Storm, OnAServer) { run(testing_host::PostgresServer::shared().makeDatabase()); }

}  // namespace
