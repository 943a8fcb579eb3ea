// What a server that is there refuses, and what is said of that.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "host/store/postgres_connection.h"
#include "host/store/postgres_store.h"
#include "host/store/store_failure.h"
#include "library/platform/kavi_named_obj.h"
#include "tests/e2e/postgres/postgres_server.h"

namespace {

using namespace host::store;
using testing_host::PostgresServer;

class PostgresRefusal : public ::testing::Test {
 protected:
  // Runs a statement as the database's owner.
  void execute(const std::string& text) { PostgresConnection(location_, 1000).execute(text); }
  // The database's location for the user `name`.
  std::string locationFor(const std::string& name) const {
    std::string location = location_;
    return location.replace(location.find("kavi@"), 4, name);
  }
  static void expectSaid(const StoreStatus& status, const char* text) {
    EXPECT_NE(status.text.find(text), std::string::npos) << status.text;
    EXPECT_FALSE(status.isUncertain);
  }

  std::string location_ = PostgresServer::shared().makeDatabase();
};

TEST_F(PostgresRefusal, OfWhoMayOnlyReadIsNoServerThatIsAway) {
  PostgresStore owned(location_);
  std::uint32_t id = 0;
  ObjectRecord object;
  object.type = KaviNamedObj::StampType;
  object.name = "a";
  ASSERT_TRUE(owned.addObject(object, {"x", 1}, id).ok());
  execute("CREATE ROLE reader LOGIN");
  execute("GRANT SELECT ON ALL TABLES IN SCHEMA public TO reader");
  PostgresStore store(locationFor("reader"));
  EXPECT_TRUE(store.findObject(id, object).ok());
  const StoreStatus removed = store.removeObject(id, 0, {"x", 1});
  EXPECT_EQ(removed.error, StoreError::Permission);
  expectSaid(removed, "permission denied for table");
  expectSaid(removed, "may use what is in it");
  PolicyRecord policy;
  ASSERT_TRUE(store.readPolicy(policy).ok());
  policy.objects.clear();
  std::int64_t revision = 0;
  EXPECT_EQ(store.replacePolicy(policy, {"x", 1}, revision).error, StoreError::Permission);
  EXPECT_TRUE(owned.findObject(id, object).ok()) << "nothing is removed";
}

TEST_F(PostgresRefusal, ToMakeTablesSaysHowToMakeTheDatabase) {
  execute("CREATE ROLE guest LOGIN");
  const StoreStatus made = PostgresStore(locationFor("guest")).prepare();
  EXPECT_EQ(made.error, StoreError::Permission);
  expectSaid(made, "permission denied for schema public");
  expectSaid(made, "createdb -O USER");
}

TEST_F(PostgresRefusal, OfAUserWhoIsNotThereOrMayNotEnter) {
  execute("CREATE ROLE locked_out NOLOGIN");
  for (const char* user : {"nobody_of_that_name", "locked_out"}) {
    const StoreStatus status = PostgresStore(locationFor(user)).prepare();
    EXPECT_EQ(status.error, StoreError::Permission) << user;
    expectSaid(status, "check the user's name and password");
  }
}

TEST_F(PostgresRefusal, OfOneConnectionTooManyIsTemporary) {
  execute("CREATE ROLE crowded LOGIN CONNECTION LIMIT 0");
  const StoreStatus status = PostgresStore(locationFor("crowded")).prepare();
  EXPECT_EQ(status.error, StoreError::Busy);
  expectSaid(status, "too many connections");
  expectSaid(status, "takes up the server's connections");
}

TEST_F(PostgresRefusal, OfASchemaThatIsNotThereNamesIt) {
  const StoreStatus status =
      PostgresStore(location_ + "&options=-c%20search_path%3Dnonexist").prepare();
  EXPECT_EQ(status.error, StoreError::Unavailable);
  expectSaid(status, "no schema");
  expectSaid(status, "has the database and the schema");
}

// The error that one statement ends with.
StoreError errorOf(PostgresConnection& connection, const std::string& text) {
  try {
    connection.execute(text);
    return StoreError::None;
  } catch (const StoreFailure& failure) {
    return failure.error();
  }
}

TEST_F(PostgresRefusal, OfADeadlockIsTemporary) {
  PostgresConnection one(location_, 10'000);
  PostgresConnection other(location_, 10'000);
  one.begin(TransactionMode::Write);
  other.begin(TransactionMode::Write);
  one.execute("SELECT pg_advisory_xact_lock(1)");
  other.execute("SELECT pg_advisory_xact_lock(2)");
  StoreError ended = StoreError::Internal;
  std::jthread waiting([&] {
    ended = errorOf(one, "SELECT pg_advisory_xact_lock(2)");
    one.rollback();
  });
  const StoreError otherEnded = errorOf(other, "SELECT pg_advisory_xact_lock(1)");
  other.rollback();
  waiting.join();
  EXPECT_NE(ended, otherEnded) << "one of the two goes on";
  EXPECT_TRUE(ended == StoreError::None || ended == StoreError::Busy);
  EXPECT_TRUE(otherEnded == StoreError::None || otherEnded == StoreError::Busy);
}

TEST_F(PostgresRefusal, OfAChangeThatSomebodyElseMadeFirstIsTemporary) {
  ASSERT_TRUE(PostgresStore(location_).prepare().ok());
  constexpr char kChange[] = "UPDATE policy_state SET revision = revision + 1";
  PostgresConnection one(location_, 10'000);
  one.execute("BEGIN ISOLATION LEVEL REPEATABLE READ");
  one.execute("SELECT revision FROM policy_state");
  execute(kChange);
  EXPECT_EQ(errorOf(one, kChange), StoreError::Busy);
  one.rollback();
}

}  // namespace
