#include "host/store/schema.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <string>
#include <vector>

#include "host/store/sql_texts.h"
#include "host/store/sqlite_connection.h"
#include "host/store/sqlite_store.h"
#include "host/store/store_failure.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using namespace host::store;

class Schema : public ::testing::Test {
 protected:
  std::int64_t number(const char* text) {
    Query query(connection_, text);
    EXPECT_TRUE(query.next());
    return query.number(0);
  }

  testing_host::TempFolder temp_;
  std::string path_ = temp_ / "store";
  // It opens a file that exists.
  SqliteConnection connection_{(testing_host::writeFile(path_, ""), path_), 1000};
  std::vector<SchemaStep> steps_{
      {"CREATE TABLE kavi_schema (version INTEGER NOT NULL)",
       "INSERT INTO kavi_schema (version) VALUES (1)",
       "CREATE TABLE things (id {row}, name {bytes} NOT NULL)"},
      {"ALTER TABLE things ADD COLUMN size BIGINT NOT NULL DEFAULT 7"},
      {"CREATE TABLE others (id {row})", "INSERT INTO others (id) VALUES (3)"}};
};

TEST_F(Schema, BringsAStoreForwardStepByStep) {
  migrate(connection_, std::span(steps_).first(1));
  connection_.database().exec("INSERT INTO things (name) VALUES (x'00FF')");
  EXPECT_EQ(number("SELECT version FROM kavi_schema"), 1);
  migrate(connection_, steps_);
  EXPECT_EQ(number("SELECT version FROM kavi_schema"), 3);
  EXPECT_EQ(number("SELECT size FROM things WHERE name = x'00FF'"), 7);
  EXPECT_EQ(number("SELECT id FROM others"), 3);
}

TEST_F(Schema, GivesOlderRulesTheAnswerThatTheyAlwaysHad) {
  migrate(connection_, schemaSteps().first(2));
  connection_.database().exec(
      "INSERT INTO rule (id, name, position, enabled, condition) "
      "VALUES (5, x'61', 2, 1, x'62'), (9, x'63', 1, 0, x'64');"
      "INSERT INTO rule_action (rule, position, type, setting) VALUES (5, 1, 1, x'65')");
  SqliteStore store(path_);
  PolicyRecord policy;
  const StoreStatus status = store.readPolicy(policy);
  ASSERT_TRUE(status.ok()) << status.text;
  EXPECT_EQ(policy.rules, (std::vector<RuleRecord>{{9, "c", 1, false, "d", {}},
                                                   {5, "a", 2, true, "b", {{1, "e", {}}}}}));
  EXPECT_EQ(policy.rules[0].onFailure, OnFailure::TempFail);
  EXPECT_EQ(policy.rules[0].verdict, RuleVerdict());
}

TEST_F(Schema, TakesAnAnswerThatItDoesNotKnowForDamage) {
  migrate(connection_, schemaSteps());
  for (const char* spoilt : {"on_failure = 2", "on_failure = -1", "verdict = 3"}) {
    connection_.database().exec(
        "DELETE FROM rule;"
        "INSERT INTO rule (id, name, position, enabled, condition) VALUES (5, x'61', 2, 1, x'62')");
    connection_.database().exec(std::string("UPDATE rule SET ") + spoilt);
    PolicyRecord policy;
    EXPECT_EQ(SqliteStore(path_).readPolicy(policy).error, StoreError::Damaged) << spoilt;
  }
}

TEST_F(Schema, LeavesOutWhatIsForServersOnly) {
  steps_.push_back({"{server}CREATE TABLE elsewhere (id {row})", "CREATE TABLE here (id {row})"});
  migrate(connection_, steps_);
  EXPECT_EQ(number("SELECT version FROM kavi_schema"), 4);
  EXPECT_EQ(number("SELECT count(*) FROM sqlite_schema WHERE name = 'here'"), 1);
  EXPECT_EQ(number("SELECT count(*) FROM sqlite_schema WHERE name = 'elsewhere'"), 0);
}

TEST_F(Schema, KeepsNamesUniqueThroughTheStepToDigests) {
  migrate(connection_, schemaSteps().first(3));
  constexpr char kAdd[] =
      "INSERT INTO named_object (id, owner, type, name, content, built_in, created_at, changed_at) "
      "VALUES ((SELECT count(*) FROM named_object) + 1, 1, 2, x'61', x'62', 0, 0, 0)";
  connection_.execute(kAdd);
  migrate(connection_, schemaSteps());
  EXPECT_EQ(number("SELECT version FROM kavi_schema"), std::ssize(schemaSteps()));
  EXPECT_THROW(connection_.execute(kAdd), StoreFailure);
  EXPECT_EQ(number("SELECT count(*) FROM named_object"), 1);
}

TEST_F(Schema, LeavesACurrentStoreAlone) {
  migrate(connection_, steps_);
  connection_.database().exec("INSERT INTO things (name) VALUES (x'41')");
  migrate(connection_, steps_);
  EXPECT_EQ(number("SELECT count(*) FROM things"), 1);
}

TEST_F(Schema, LeavesAStoreAsItWasWhenAStepFails) {
  migrate(connection_, std::span(steps_).first(1));
  steps_[2].push_back("CREATE TABLE things (id {row})");
  EXPECT_THROW(migrate(connection_, steps_), StoreFailure);
  EXPECT_EQ(number("SELECT version FROM kavi_schema"), 1);
  EXPECT_EQ(number("SELECT count(*) FROM sqlite_schema WHERE name = 'others'"), 0);
  EXPECT_EQ(number("SELECT count(*) FROM pragma_table_info('things') WHERE name = 'size'"), 0);
}

TEST_F(Schema, RefusesAStoreFromTheFuture) {
  migrate(connection_, steps_);
  try {
    migrate(connection_, std::span(steps_).first(2));
    FAIL() << "migrated backwards";
  } catch (const StoreFailure& failure) {
    EXPECT_EQ(failure.error(), StoreError::TooNew);
    EXPECT_STREQ(failure.what(), "it has version 3, this program knows versions up to 2");
  }
  EXPECT_EQ(number("SELECT version FROM kavi_schema"), 3);
}

TEST_F(Schema, RefusesTheDatabaseOfAnotherProgram) {
  connection_.database().exec("CREATE TABLE bookmarks (url TEXT)");
  try {
    migrate(connection_, steps_);
    FAIL() << "took somebody else's database";
  } catch (const StoreFailure& failure) {
    EXPECT_EQ(failure.error(), StoreError::Damaged);
  }
  EXPECT_EQ(number("SELECT count(*) FROM sqlite_schema"), 1);
}

TEST_F(Schema, RefusesAStoreWithoutAProperVersion) {
  migrate(connection_, steps_);
  for (const char* spoil : {"UPDATE kavi_schema SET version = 0", "DELETE FROM kavi_schema"}) {
    connection_.database().exec(spoil);
    EXPECT_THROW(migrate(connection_, steps_), StoreFailure) << spoil;
  }
}

TEST_F(Schema, NumbersParametersAsTheirNamesSay) {
  migrate(connection_, schemaSteps());
  for (const char* text : sql::kEveryStatement) {
    sqlite3_stmt* statement = nullptr;
    const std::string words = connection_.inDialect(text);
    ASSERT_EQ(sqlite3_prepare_v2(connection_.database().getHandle(), words.c_str(), -1, &statement,
                                 nullptr),
              SQLITE_OK)
        << text;
    for (int index = 1; index <= sqlite3_bind_parameter_count(statement); ++index) {
      EXPECT_EQ(sqlite3_bind_parameter_name(statement, index), "$" + std::to_string(index)) << text;
    }
    sqlite3_finalize(statement);
  }
}

// Whether a step of a plan costs no more than what it brings. The table of one row has no index.
bool isCheap(const std::string& step) {
  for (const char* cheap : {"SEARCH ", "SCAN policy_state", "CORRELATED SCALAR SUBQUERY",
                            "LIST SUBQUERY", "USE TEMP B-TREE FOR ORDER BY"}) {
    if (step.starts_with(cheap)) return true;
  }
  return false;
}

// Reading a whole policy goes through its tables from end to end, in the order of an index.
bool isWhole(const std::string& question) {
  const std::string whole[] = {sql::kReadObjects, sql::kReadRules, sql::kReadActions,
                               sql::kReadRuleObjects};
  return std::find(std::begin(whole), std::end(whole), question) != std::end(whole);
}

TEST_F(Schema, AnswersEveryQuestionByAnIndex) {
  migrate(connection_, schemaSteps());
  int plans = 0;
  for (const char* text : sql::kEveryStatement) {
    const std::string question(text);
    if (question.starts_with("INSERT") || question == sql::kForgetBefore) continue;
    SQLite::Statement plan(connection_.database(),
                           "EXPLAIN QUERY PLAN " + connection_.inDialect(question));
    while (plan.executeStep()) {
      ++plans;
      const std::string step = plan.getColumn(3).getString();
      EXPECT_TRUE(isCheap(step) || (isWhole(question) && step.find("USING INDEX") != step.npos) ||
                  (isWhole(question) && step == "SCAN named_object"))
          << question << "\n"
          << step;
      // Only the few rules that refer to one object are sorted afterwards.
      EXPECT_TRUE(question == sql::kListReferrers || !step.starts_with("USE TEMP")) << question;
    }
  }
  EXPECT_GT(plans, 10);
}

}  // namespace
