// Quarantined and archived messages later: released, removed, past their days.
#include "host/delivery/filed_mail.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <utility>

#include "tests/unit/host/delivery/filing_bench.h"

namespace {

using host::delivery::AdapterError;
using host::delivery::DeliverySettings;
using host::delivery::PurgeOrder;
using host::delivery::PurgeReport;
using host::delivery::ReleaseOrder;
using host::delivery::SpoolEntry;
using host::store::IndexEntry;
using host::store::MessageKind;
using testing_host::PlainMessage;

constexpr std::int64_t kDay = 24 * 60 * 60;

class FiledMail : public testing_host::FilingTest {
 protected:
  FiledMail() {
    settings_.scan.host = "127.0.0.1";
    settings_.scan.port = 25;
    settings_.plain = settings_.scan;
  }

  IndexEntry quarantined(const std::string& bytes) {
    PlainMessage message(bytes);
    message.setId("abc" + std::to_string(++made_));
    message.setEnvelope("a@example.org", {"b@example.org"});
    EXPECT_TRUE(testing_host::quarantine(adapter_, message, bench_.folder).ok());
    return bench_.rows().back();
  }

  /// Gives a row its age.
  IndexEntry aged(IndexEntry entry, std::optional<std::uint32_t> days, std::int64_t storedAt) {
    entry.agingDays = days;
    entry.storedAt = storedAt;
    std::int64_t row = 0;
    EXPECT_TRUE(bench_.store->memory().addEntry(entry, nullptr, row).ok());
    entry.row = row;
    return entry;
  }

  AdapterError release(const IndexEntry& entry, const ReleaseOrder& order) {
    const AdapterError error = mail_.release(entry, order, report_);
    EXPECT_EQ(report_.isQueued, error == AdapterError::None);
    return error;
  }

  PurgeReport purge(std::int64_t now, std::optional<MessageKind> kind = {}) {
    PurgeReport report;
    std::string fault;
    EXPECT_EQ(mail_.purge(PurgeOrder{now, kind}, {}, report, fault), AdapterError::None) << fault;
    return report;
  }

  std::pair<SpoolEntry, std::string> onlyEntry() {
    std::vector<std::string> ids;
    SpoolEntry entry;
    std::string bytes;
    EXPECT_EQ(bench_.state.spool().list(ids), AdapterError::None);
    EXPECT_EQ(ids.size(), 1u);
    if (!ids.empty()) {
      EXPECT_EQ(bench_.state.spool().read(ids.front(), entry, bytes), AdapterError::None);
    }
    return {entry, bytes};
  }

  DeliverySettings settings_;
  host::delivery::FiledMail mail_{bench_.state, settings_, nullptr};
  host::delivery::ReleaseReport report_;
  int made_ = 0;
};

constexpr char kMarked[] =
    "X-kavi-reprocess-rules: 7\r\nX-kavi-reprocess-type: quarantine\r\nSubject: x\r\n\r\nbody\r\n";

TEST_F(FiledMail, GoesBackToScanningAsItLies) {
  const IndexEntry entry = quarantined(kMarked);
  EXPECT_EQ(release(entry, {{"a@example.org", {"b@example.org"}}}), AdapterError::None);
  const auto [queued, bytes] = onlyEntry();
  EXPECT_EQ(bytes, kMarked);
  EXPECT_STREQ(queued.kind.c_str(), host::delivery::kResentKind);
  EXPECT_EQ(queued.envelope.sender, "a@example.org");
  EXPECT_EQ(queued.envelope.recipients, std::vector<std::string>{"b@example.org"});
  EXPECT_FALSE(report_.scannedAgain);
  EXPECT_TRUE(std::filesystem::exists(entry.path)) << "it is kept";
}

TEST_F(FiledMail, SaysWhenAllRulesScanItAgain) {
  for (const char* bytes : {"Subject: x\r\n\r\nbody\r\n", "no header\r\n"}) {
    EXPECT_EQ(release(quarantined(bytes), {{"a@example.org", {"b@example.org"}}}),
              AdapterError::None);
    EXPECT_TRUE(report_.scannedAgain) << bytes;
  }
}

TEST_F(FiledMail, MayGoOnUnscanned) {
  ReleaseOrder order{{"", {"c@example.org", "d@example.org"}}, true};
  EXPECT_EQ(release(quarantined("Subject: x\r\n\r\nbody\r\n"), order), AdapterError::None);
  const auto [queued, bytes] = onlyEntry();
  EXPECT_STREQ(queued.kind.c_str(), host::delivery::kDeliveredKind);
  EXPECT_EQ(queued.envelope.recipients.size(), 2u);
  EXPECT_FALSE(report_.scannedAgain);
}

TEST_F(FiledMail, IsNotReleasedToNobodyOrNowhere) {
  const IndexEntry entry = quarantined(kMarked);
  EXPECT_EQ(release(entry, {{"a@example.org", {}}}), AdapterError::NoRecipients);
  EXPECT_EQ(release(entry, {{"a@example.org", {"b c"}}}), AdapterError::BadAddress);
  settings_.scan = {};
  EXPECT_EQ(release(entry, {{"a@example.org", {"b@example.org"}}}), AdapterError::NoDestination);
  std::filesystem::remove(entry.path);
  EXPECT_EQ(release(entry, {{"a@example.org", {"b@example.org"}}}), AdapterError::NotFound);
  std::vector<std::string> ids;
  EXPECT_EQ(bench_.state.spool().list(ids), AdapterError::None);
  EXPECT_TRUE(ids.empty());
}

TEST_F(FiledMail, GoesWhenItIsNotKept) {
  const IndexEntry entry = quarantined(kMarked);
  const ReleaseOrder order{{"a@example.org", {"b@example.org"}}, false, false};
  EXPECT_EQ(release(entry, order), AdapterError::None);
  EXPECT_FALSE(std::filesystem::exists(entry.path));
  EXPECT_TRUE(bench_.rows().empty());
  EXPECT_EQ(release(entry, order), AdapterError::NotFound) << "by whom has seen the row before";
  onlyEntry();
}

TEST_F(FiledMail, ThatIsAnotherCopyByNowIsNotReleased) {
  const IndexEntry entry = quarantined(kMarked);
  ASSERT_TRUE(bench_.store->memory().removeEntry(entry.row).ok());
  EXPECT_EQ(release(entry, {{"a@example.org", {"b@example.org"}}}), AdapterError::NotFound);
}

TEST_F(FiledMail, IsLeftToWhomeverIsAtIt) {
  const IndexEntry entry = aged(quarantined(kMarked), 1, 1000);
  const int other = ::open(entry.path.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::flock(other, LOCK_EX), 0);
  std::string fault;
  EXPECT_EQ(release(entry, {{"a@example.org", {"b@example.org"}}}), AdapterError::UnderWay);
  EXPECT_EQ(mail_.remove(entry, fault), AdapterError::UnderWay);
  const PurgeReport report = purge(1000 + 9 * kDay);
  EXPECT_EQ(report.removed + report.kept, 0u);
  EXPECT_TRUE(std::filesystem::exists(entry.path));
  ::close(other);  // as the kernel does with a process that is killed
  EXPECT_EQ(release(entry, {{"a@example.org", {"b@example.org"}}}), AdapterError::None);
}

TEST_F(FiledMail, IsRemovedWithItsRow) {
  const IndexEntry entry = quarantined(kMarked);
  std::string fault;
  EXPECT_EQ(mail_.remove(entry, fault), AdapterError::None);
  EXPECT_FALSE(std::filesystem::exists(entry.path));
  EXPECT_TRUE(bench_.rows().empty());
}

TEST_F(FiledMail, IsPurgedOnceItsDaysAreOver) {
  const IndexEntry old = aged(quarantined(kMarked), 3, 1000);
  const IndexEntry forGood = aged(quarantined(kMarked), {}, 1000);
  const IndexEntry young = aged(quarantined(kMarked), 3, 1000 + kDay);
  EXPECT_EQ(purge(1000 + 3 * kDay - 1).removed, 0u);
  EXPECT_EQ(purge(1000 + 3 * kDay).removed, 1u);
  EXPECT_FALSE(std::filesystem::exists(old.path));
  EXPECT_TRUE(std::filesystem::exists(forGood.path));
  EXPECT_TRUE(std::filesystem::exists(young.path));
}

TEST_F(FiledMail, IsPurgedByKindWhenOneIsNamed) {
  aged(quarantined(kMarked), 1, 1000);
  EXPECT_EQ(purge(1000 + 9 * kDay, MessageKind::Archived).removed, 0u);
  EXPECT_EQ(bench_.rows().size(), 1u);
  EXPECT_EQ(purge(1000 + 9 * kDay, MessageKind::Quarantined).removed, 1u);
}

TEST_F(FiledMail, ThatCannotBeRemovedHoldsNobodyBack) {
  // Their folder is away, as when its disk is not mounted: the rows have to stay.
  std::vector<IndexEntry> away;
  for (int i = 0; i < 300; ++i) {
    IndexEntry entry;
    entry.path = bench_.folder + "/gone/" + std::to_string(i) + ".DF";
    away.push_back(aged(entry, 1, 1000));
  }
  for (int i = 0; i < 250; ++i) {
    IndexEntry entry;
    entry.path = bench_.folder + "/" + std::to_string(i) + ".DF";
    aged(entry, 1, 2000);
  }
  const PurgeReport report = purge(1000 + 9 * kDay);
  EXPECT_EQ(report.removed, 250u);
  EXPECT_EQ(report.kept, 300u);
  EXPECT_NE(report.firstFault.find("/gone/"), std::string::npos) << report.firstFault;
  EXPECT_EQ(bench_.rows().size(), 300u);
}

}  // namespace
