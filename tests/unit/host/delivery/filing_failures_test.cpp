// Filing when folders or the index fail, and taking copies away again.
#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

#include "host/delivery/filing.h"
#include "tests/unit/host/delivery/filing_bench.h"

namespace {

using host::delivery::AdapterError;
using host::delivery::LocalAdapter;
using testing_host::Answer;
using testing_host::archive;
using testing_host::filesBelow;
using testing_host::quarantine;
using Files = std::vector<std::string>;
using FilingFailures = testing_host::FilingTest;

// Whatever fails: the error says so, no file stays, no row stays, and the next attempt succeeds.
TEST_F(FilingFailures, LeavesNothingWhereverAFileOperationFails) {
  for (const bool archives : {false, true}) {
    for (const auto& [errnoValue, error] :
         {std::pair{ENOSPC, AdapterError::DiskFull}, std::pair{EROFS, AdapterError::ReadOnly},
          std::pair{EACCES, AdapterError::Permission}, std::pair{EIO, AdapterError::InputOutput},
          std::pair{EMFILE, AdapterError::TooManyFiles}}) {
      int failures = 0;
      for (unsigned int call = 1;; ++call) {
        std::filesystem::remove_all(bench_.folder);
        std::filesystem::create_directory(bench_.folder);
        bench_.ops.failCall(call, errnoValue);
        const Answer answer = archives ? archiveIt() : quarantineIt();
        const bool fired = bench_.ops.fired();
        bench_.ops.failCall(0, 0);
        if (!fired) {
          EXPECT_TRUE(answer.ok());
          break;
        }
        if (answer.ok()) {
          // Whether a name is free may stay open: the rename finds out.
          EXPECT_EQ(errnoValue, EACCES) << call;
          ASSERT_EQ(bench_.rows().size(), 1u);
          ASSERT_EQ(bench_.store->removeEntry(bench_.rows()[0].row).error,
                    host::store::StoreError::None);
          continue;
        }
        ++failures;
        EXPECT_EQ(answer.error, error) << call;
        EXPECT_EQ(answer.path, "");
        EXPECT_EQ(filesBelow(bench_.folder), Files{}) << call;
        EXPECT_TRUE(bench_.rows().empty()) << call;
      }
      EXPECT_GT(failures, 8);
      ASSERT_EQ(bench_.rows().size(), 1u);
      ASSERT_EQ(bench_.store->removeEntry(bench_.rows()[0].row).error,
                host::store::StoreError::None);
    }
  }
}

TEST_F(FilingFailures, TellsEveryFaultOfTheIndexApart) {
  using host::store::StoreError;
  for (const auto& [fault, error] :
       {std::pair{StoreError::Unavailable, AdapterError::IndexUnavailable},
        std::pair{StoreError::Busy, AdapterError::IndexBusy},
        std::pair{StoreError::Full, AdapterError::IndexFull},
        std::pair{StoreError::ReadOnly, AdapterError::IndexReadOnly},
        std::pair{StoreError::Permission, AdapterError::IndexPermission},
        std::pair{StoreError::Damaged, AdapterError::IndexDamaged},
        std::pair{StoreError::TooNew, AdapterError::IndexTooNew},
        std::pair{StoreError::InputOutput, AdapterError::IndexFailed},
        std::pair{StoreError::Internal, AdapterError::IndexFailed},
        std::pair{StoreError::OutOfMemory, AdapterError::OutOfMemory}}) {
    bench_.store->failAll(fault);
    for (const Answer& answer : {quarantineIt(), archiveIt()}) {
      EXPECT_NE(answer.result, 0);
      EXPECT_EQ(answer.error, error);
      EXPECT_EQ(answer.path, "");
    }
    EXPECT_EQ(adapter_.lastFault(), "the index is told to fail");
    EXPECT_EQ(filesBelow(bench_.folder), Files{});
  }
  bench_.store->recover();
  EXPECT_TRUE(quarantineIt().ok());
}

TEST_F(FilingFailures, LeavesNoRowWhenTheIndexFailedOnlyBehindItsCommit) {
  using Moment = testing_host::FailingStore::Moment;
  bench_.store->failCall(1, Moment::Behind);
  EXPECT_EQ(quarantineIt().error, AdapterError::IndexUnavailable);
  EXPECT_TRUE(bench_.store->fired());
  EXPECT_EQ(filesBelow(bench_.folder), Files{});
  EXPECT_TRUE(bench_.rows().empty());
}

TEST_F(FilingFailures, RemovesACopyWithItsRow) {
  ASSERT_TRUE(quarantineIt().ok());
  ASSERT_TRUE(quarantineIt().ok());
  const auto rows = bench_.rows();
  std::string fault;
  EXPECT_EQ(bench_.state.filing()->remove(rows[0], fault), AdapterError::None);
  EXPECT_EQ(filesBelow(bench_.folder), Files{"a/b/abc123~2.DF"});
  EXPECT_EQ(bench_.rows().size(), 1u);
  EXPECT_EQ(bench_.state.filing()->remove(rows[0], fault), AdapterError::None) << "gone is gone";
  std::filesystem::rename(bench_.folder, bench_.temp / "elsewhere");
  EXPECT_EQ(bench_.state.filing()->remove(rows[1], fault), AdapterError::MissingFolder);
  EXPECT_EQ(bench_.rows().size(), 1u) << "its disk may not be mounted";
  std::filesystem::rename(bench_.temp / "elsewhere", bench_.folder);
  std::filesystem::remove(rows[1].path);
  EXPECT_EQ(bench_.state.filing()->remove(rows[1], fault), AdapterError::None);
  EXPECT_TRUE(bench_.rows().empty());
}

TEST_F(FilingFailures, KeepsTheRowOfACopyThatCannotBeRemoved) {
  ASSERT_TRUE(quarantineIt().ok());
  const auto row = bench_.rows()[0];
  std::string fault;
  bench_.ops.failAll("openFolder", EACCES);
  EXPECT_EQ(bench_.state.filing()->remove(row, fault), AdapterError::Permission);
  EXPECT_EQ(bench_.rows().size(), 1u);
  bench_.ops.failAll("", 0);
  bench_.store->failAll(host::store::StoreError::Busy);
  EXPECT_EQ(bench_.state.filing()->remove(row, fault), AdapterError::IndexBusy);
  EXPECT_EQ(fault, "the index is told to fail");
}

TEST_F(FilingFailures, LetsTheStateForgetOldEffectsOnly) {
  const std::int64_t now = host::delivery::MessageEffects::systemClock();
  constexpr std::int64_t kDay = 86'400;
  for (const std::int64_t age : {29 * kDay, 31 * kDay}) {
    host::store::EffectKey key;
    key.effect.fill(static_cast<unsigned char>(age / kDay));
    host::store::EffectAnswer answer;
    ASSERT_TRUE(bench_.store->beginEffect(key, {"a", now - age, 60, {}}, answer).ok());
  }
  std::size_t dropped = 0;
  std::string fault;
  EXPECT_EQ(bench_.state.forgetOldEffects(dropped, fault), AdapterError::None);
  EXPECT_EQ(dropped, 1u);
  EXPECT_EQ(bench_.store->memory().effectCount(), 1u);
  bench_.store->failAll(host::store::StoreError::Busy);
  EXPECT_EQ(bench_.state.forgetOldEffects(dropped, fault), AdapterError::IndexBusy);
  EXPECT_EQ(fault, "the index is told to fail");
}

TEST_F(FilingFailures, FailsWithoutAnOpenState) {
  host::delivery::DeliveryState closed;
  LocalAdapter adapter(closed);
  EXPECT_EQ(quarantine(adapter, bench_.message, bench_.folder).error, AdapterError::MissingFolder);
  EXPECT_EQ(archive(adapter, bench_.message, bench_.folder, "x").error,
            AdapterError::MissingFolder);
}

}  // namespace
