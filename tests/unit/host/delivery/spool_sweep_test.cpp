// The spool and the index, brought in line.
#include "host/delivery/spool_sweep.h"

#include <gtest/gtest.h>

#include "tests/unit/host/delivery/filing_bench.h"

namespace {

using namespace host::delivery;
using host::store::IndexEntry;
using host::store::MessageKind;
using testing_host::FilingBench;

class SpoolSweepTest : public ::testing::Test {
 protected:
  std::string file(const char* kind = kPostponedKind, const std::string& subject = "hello") {
    testing_host::PlainMessage message("Subject: " + subject + "\r\n\r\nbody\r\n");
    message.setEnvelope("a@example.org", {"b@example.org"});
    SpoolEntry entry;
    entry.kind = kind;
    entry.queuedAt = 1'700'000'000;
    entry.window = {8, 30, 23, 59};
    entry.rule = 15;
    std::string id;
    EXPECT_EQ(spool().put(entry, message, id), AdapterError::None);
    return id;
  }
  std::int64_t addRow(const std::string& path, const std::string& area,
                      MessageKind kind = MessageKind::Postponed) {
    IndexEntry row;
    row.kind = kind;
    row.area = area;
    row.path = path;
    std::int64_t number = 0;
    EXPECT_TRUE(bench_.store->addEntry(row, nullptr, number).ok());
    return number;
  }
  SpoolSweepReport sweep() {
    SpoolSweepReport report;
    std::string fault;
    EXPECT_EQ(bench_.state.prepareSpool(report, fault), AdapterError::None) << fault;
    return report;
  }
  std::string pathOf(const std::string& id) { return bench_.temp / ("state/spool/" + id + ".msg"); }
  std::string area() { return bench_.state.spoolIndex()->area(); }
  Spool& spool() { return bench_.state.spool(); }

  FilingBench bench_;
};

TEST_F(SpoolSweepTest, AddsTheRowsThatAreMissing) {
  const std::string id = file(kPostponedKind,
                              "gr\xC3\xBC\xC3\x9F"
                              "e");
  file(kResentKind);
  file(kDeliveredKind);
  const SpoolSweepReport report = sweep();
  EXPECT_EQ(report.rowsAdded, 1u);
  EXPECT_EQ(report.rowsRemoved, 0u);
  ASSERT_EQ(bench_.rows().size(), 1u);
  const IndexEntry row = bench_.rows()[0];
  EXPECT_EQ(row.kind, MessageKind::Postponed);
  EXPECT_EQ(row.area, area());
  EXPECT_EQ(row.path, pathOf(id));
  EXPECT_EQ(row.rule, "15");
  EXPECT_EQ(row.subject, "grüße");
  EXPECT_EQ(row.sender, "a@example.org");
  EXPECT_EQ(row.recipients, std::vector<std::string>{"b@example.org"});
  EXPECT_EQ(row.storedAt, 1'700'000'000);
  EXPECT_EQ(sweep().rowsAdded, 0u);
  EXPECT_EQ(bench_.rows().size(), 1u);
}

TEST_F(SpoolSweepTest, RemovesTheRowsOfWhatHasGone) {
  const std::string gone = file();
  const std::string stays = file();
  ASSERT_EQ(sweep().rowsAdded, 2u);
  ASSERT_EQ(spool().remove(gone), AdapterError::None);
  EXPECT_EQ(sweep().rowsRemoved, 1u);
  ASSERT_EQ(bench_.rows().size(), 1u);
  EXPECT_EQ(bench_.rows()[0].path, pathOf(stays));
}

TEST_F(SpoolSweepTest, LeavesRowsAloneThatAreNotOfThisSpool) {
  addRow("/elsewhere/spool/0123abcd.msg", area());
  addRow(pathOf("0123abcd"), "another host");
  addRow(pathOf("4567cdef") + "x", area());
  addRow(pathOf("89abcdef"), area(), MessageKind::Quarantined);
  const SpoolSweepReport report = sweep();
  EXPECT_EQ(report.rowsRemoved, 0u);
  EXPECT_EQ(bench_.rows().size(), 4u);
}

TEST_F(SpoolSweepTest, LeavesToOthersWhatTheyAreAt) {
  const std::string id = file();
  host::core::Descriptor hold;
  ASSERT_EQ(spool().hold(id, hold), AdapterError::None);
  EXPECT_EQ(sweep().rowsNotAdded, 1u);
  EXPECT_TRUE(bench_.rows().empty());
  hold.reset();
  EXPECT_EQ(sweep().rowsAdded, 1u);
}

TEST_F(SpoolSweepTest, PassesOverDamagedEntries) {
  const std::string id = file();
  testing_host::writeFile(pathOf(id), "nonsense");
  const SpoolSweepReport report = sweep();
  EXPECT_EQ(report.rowsAdded, 0u);
  EXPECT_TRUE(bench_.rows().empty());
}

TEST_F(SpoolSweepTest, KeepsTheRowOfADamagedEntry) {
  const std::string id = file();
  ASSERT_EQ(sweep().rowsAdded, 1u);
  testing_host::writeFile(pathOf(id), "nonsense");
  EXPECT_EQ(sweep().rowsRemoved, 0u);
  EXPECT_EQ(bench_.rows().size(), 1u);
}

TEST_F(SpoolSweepTest, GoesThroughMoreThanOnePage) {
  constexpr int kMany = 1203;
  for (int count = 0; count < kMany; ++count) {
    addRow(pathOf("gone" + std::to_string(count)), area());
  }
  const std::string id = file();
  addRow(pathOf(id), area());
  EXPECT_EQ(sweep().rowsRemoved, static_cast<std::size_t>(kMany));
  EXPECT_EQ(bench_.rows().size(), 1u);
}

TEST_F(SpoolSweepTest, SaysThatTheIndexFails) {
  file();
  const std::string gone = file();
  addRow(pathOf(gone), area());
  ASSERT_EQ(spool().remove(gone), AdapterError::None);
  for (unsigned int call = 1;; ++call) {
    bench_.store->failCall(call);
    SpoolSweepReport report;
    std::string fault;
    const AdapterError error = bench_.state.prepareSpool(report, fault);
    if (!bench_.store->fired()) {
      EXPECT_EQ(error, AdapterError::None);
      EXPECT_EQ(call, 4u);
      break;
    }
    EXPECT_EQ(error, AdapterError::IndexUnavailable) << call;
    EXPECT_FALSE(fault.empty());
  }
  EXPECT_EQ(bench_.rows().size(), 1u);
}

}  // namespace
