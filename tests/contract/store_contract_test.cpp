// What every store promises: the index of stored messages and the ledger of effects.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "tests/contract/subjects.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using namespace host::store;

constexpr std::int64_t kDay = 86'400;

EffectKey keyOf(unsigned char message, unsigned char effect) {
  EffectKey key;
  key.message.fill(message);
  key.effect.fill(message);
  key.effect.back() = effect;
  return key;
}

EffectClaim claimOf(std::string owner, std::int64_t now, std::string intended = "there") {
  return {std::move(owner), now, 60, std::move(intended)};
}

class StoreContract : public ::testing::Test {
 protected:
  std::int64_t add(const IndexEntry& entry) {
    std::int64_t row = -1;
    const StoreStatus status = store_->addEntry(entry, nullptr, row);
    EXPECT_TRUE(status.ok()) << status.text;
    return row;
  }

  std::int64_t addAt(const std::string& path, MessageKind kind = MessageKind::Quarantined,
                     const std::string& area = "area") {
    IndexEntry entry;
    entry.kind = kind;
    entry.area = area;
    entry.messageId = "id";
    entry.path = path;
    return add(entry);
  }

  std::vector<std::int64_t> rowsOf(const IndexPage& page) {
    std::vector<IndexEntry> entries;
    EXPECT_TRUE(store_->list(page, entries).ok());
    std::vector<std::int64_t> rows;
    for (const IndexEntry& entry : entries) rows.push_back(entry.row);
    return rows;
  }

  std::vector<std::string> pathsOf(const std::string& prefix, const std::string& after,
                                   std::size_t limit) {
    std::vector<IndexPath> found;
    EXPECT_TRUE(store_->listPaths(prefix, after, limit, found).ok());
    std::vector<std::string> paths;
    for (const IndexPath& path : found) paths.push_back(path.path);
    return paths;
  }

  EffectAnswer begin(const EffectKey& key, const EffectClaim& claim) {
    EffectAnswer answer{EffectState::UnderWay, "before"};
    const StoreStatus status = store_->beginEffect(key, claim, answer);
    EXPECT_TRUE(status.ok()) << status.text;
    return answer;
  }

  testing_host::TempFolder temp_;
  std::unique_ptr<Store> store_ = contract::makeStore(temp_.path());
};

TEST_F(StoreContract, IsReadyWhenPreparedTwice) {
  EXPECT_TRUE(store_->prepare().ok());
  EXPECT_TRUE(store_->prepare().ok());
}

TEST_F(StoreContract, GivesAnEntryBackAsItWas) {
  IndexEntry entry;
  entry.kind = MessageKind::Archived;
  entry.area = "Verträge '; DROP TABLE message_index; --";
  entry.messageId = "0123456789abcdef";
  entry.rule = "15";
  entry.agingDays = std::numeric_limits<std::uint32_t>::max();
  entry.sender = "";
  entry.recipients = {"a@example.org", "", "b:,@example.org"};
  entry.subject = std::string("with a NUL \0 and \xFF\xFE no UTF-8", 29);
  entry.size = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  entry.storedAt = 1'700'000'000;
  entry.path = "/var/a/b\n\"c\"";
  entry.row = add(entry);
  EXPECT_GT(entry.row, 0);
  IndexEntry found;
  ASSERT_TRUE(store_->findEntry(entry.row, found).ok());
  EXPECT_EQ(found, entry);
  found = {};
  ASSERT_TRUE(store_->findPath(entry.path, found).ok());
  EXPECT_EQ(found, entry);
}

TEST_F(StoreContract, TellsNothingFromEmpty) {
  IndexEntry entry;
  entry.path = "/x";
  entry.row = add(entry);
  IndexEntry found;
  found.sender = "before";
  found.agingDays = 3;
  ASSERT_TRUE(store_->findEntry(entry.row, found).ok());
  EXPECT_EQ(found.sender, std::nullopt);
  EXPECT_EQ(found.agingDays, std::nullopt);
  EXPECT_TRUE(found.recipients.empty());
}

TEST_F(StoreContract, KeepsAMegabyteOfAnyBytes) {
  IndexEntry entry;
  entry.path = "/x";
  for (int i = 0; i < 1 << 20; ++i) entry.subject += static_cast<char>(i * 7);
  for (int i = 0; i < 10'000; ++i) {
    entry.recipients.push_back("r" + std::to_string(i) + "@example.org");
  }
  entry.row = add(entry);
  IndexEntry found;
  ASSERT_TRUE(store_->findEntry(entry.row, found).ok());
  EXPECT_EQ(found, entry);
}

TEST_F(StoreContract, RefusesWhatNoRowCanHold) {
  IndexEntry entry;
  std::int64_t row = 7;
  EXPECT_EQ(store_->addEntry(entry, nullptr, row).error, StoreError::InvalidArgument) << "no path";
  entry.path = "/x";
  entry.size = std::uint64_t{1} << 63;
  EXPECT_EQ(store_->addEntry(entry, nullptr, row).error, StoreError::InvalidArgument) << "size";
  EXPECT_EQ(row, 7);
  EXPECT_TRUE(rowsOf({}).empty());
}

TEST_F(StoreContract, KeepsOneRowForAPath) {
  const std::int64_t first = addAt("/x");
  const std::int64_t other = addAt("/y");
  IndexEntry entry;
  entry.path = "/x";
  entry.subject = "second";
  EXPECT_EQ(add(entry), first);
  EXPECT_EQ(rowsOf({}), (std::vector{first, other}));
  IndexEntry found;
  ASSERT_TRUE(store_->findPath("/x", found).ok());
  EXPECT_EQ(found.subject, "second");
  EXPECT_EQ(found.area, "");
}

TEST_F(StoreContract, AddsAMissingRowAndLeavesAPresentOne) {
  IndexEntry entry;
  entry.path = "/x";
  entry.subject = "first";
  bool added = false;
  ASSERT_TRUE(store_->addMissing(entry, added).ok());
  EXPECT_TRUE(added);
  entry.subject = "second";
  ASSERT_TRUE(store_->addMissing(entry, added).ok());
  EXPECT_FALSE(added);
  IndexEntry found;
  ASSERT_TRUE(store_->findPath("/x", found).ok());
  EXPECT_EQ(found.subject, "first");
}

TEST_F(StoreContract, NeverGivesARowNumberAgain) {
  const std::int64_t first = addAt("/x");
  ASSERT_TRUE(store_->removeEntry(first).ok());
  EXPECT_GT(addAt("/x"), first);
}

TEST_F(StoreContract, SaysWhenThereIsNoSuchRow) {
  IndexEntry entry;
  entry.subject = "before";
  EXPECT_EQ(store_->findEntry(1, entry).error, StoreError::NotFound);
  EXPECT_EQ(store_->findPath("/x", entry).error, StoreError::NotFound);
  EXPECT_EQ(store_->removeEntry(1).error, StoreError::NotFound);
  EXPECT_EQ(store_->removePath("/x").error, StoreError::NotFound);
  EXPECT_EQ(entry.subject, "before");
}

TEST_F(StoreContract, RemovesByRowAndByPath) {
  const std::int64_t first = addAt("/x");
  const std::int64_t second = addAt("/y");
  const std::int64_t third = addAt("/z");
  EXPECT_TRUE(store_->removeEntry(first).ok());
  EXPECT_TRUE(store_->removePath("/z").ok());
  EXPECT_EQ(rowsOf({}), std::vector{second});
  EXPECT_EQ(store_->removeEntry(third).error, StoreError::NotFound);
}

TEST_F(StoreContract, FindsEveryRowOfAMessage) {
  addAt("/x");
  addAt("/y", MessageKind::Archived);
  IndexEntry other;
  other.messageId = "other";
  other.path = "/z";
  add(other);
  std::vector<IndexEntry> entries;
  ASSERT_TRUE(store_->findMessage("id", entries).ok());
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].path, "/x");
  EXPECT_EQ(entries[1].path, "/y");
  ASSERT_TRUE(store_->findMessage("nobody's", entries).ok());
  EXPECT_TRUE(entries.empty());
}

TEST_F(StoreContract, ListsByKindAndAreaInPages) {
  std::vector<std::int64_t> all;
  for (int i = 0; i < 6; ++i) {
    all.push_back(addAt("/" + std::to_string(i),
                        i % 2 == 0 ? MessageKind::Quarantined : MessageKind::Archived,
                        i < 3 ? "one" : "two"));
  }
  EXPECT_EQ(rowsOf({}), all);
  EXPECT_EQ(rowsOf({MessageKind::Archived, {}, 0, 100}), (std::vector{all[1], all[3], all[5]}));
  EXPECT_EQ(rowsOf({{}, "two", 0, 100}), (std::vector{all[3], all[4], all[5]}));
  EXPECT_EQ(rowsOf({MessageKind::Quarantined, "one", 0, 100}), (std::vector{all[0], all[2]}));
  EXPECT_TRUE(rowsOf({MessageKind::Postponed, {}, 0, 100}).empty());
  EXPECT_TRUE(rowsOf({{}, "", 0, 100}).empty());
  EXPECT_EQ(rowsOf({{}, {}, 0, 4}), (std::vector{all[0], all[1], all[2], all[3]}));
  EXPECT_EQ(rowsOf({{}, {}, all[3], 4}), (std::vector{all[4], all[5]}));
  EXPECT_EQ(rowsOf({{}, "two", all[3], 1}), std::vector{all[4]});
  EXPECT_TRUE(rowsOf({{}, {}, 0, 0}).empty());
  EXPECT_EQ(rowsOf({{}, {}, 0, std::numeric_limits<std::size_t>::max()}), all);
}

TEST_F(StoreContract, ListsWhatIsPastItsAgingDays) {
  const auto addAged = [this](const std::string& path, std::int64_t storedAt,
                              std::optional<std::uint32_t> days) {
    IndexEntry entry;
    entry.path = path;
    entry.storedAt = storedAt;
    entry.agingDays = days;
    add(entry);
  };
  addAged("/kept for good", 0, std::nullopt);
  addAged("/later", 1000, 3);
  addAged("/sooner", 2000, 1);
  addAged("/on the second", 3000, 1);
  addAged("/one second too young", 3001, 1);
  std::vector<IndexEntry> entries;
  ASSERT_TRUE(store_->listExpired(3000 + kDay, 100, entries).ok());
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].path, "/sooner");
  EXPECT_EQ(entries[1].path, "/on the second");
  ASSERT_TRUE(store_->listExpired(1000 + 3 * kDay, 2, entries).ok());
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].path, "/sooner");
  ASSERT_TRUE(store_->listExpired(0, 100, entries).ok());
  EXPECT_TRUE(entries.empty());
}

TEST_F(StoreContract, ListsPathsInTheOrderOfTheirBytes) {
  for (const char* path :
       {"/q/b", "/q/\xFF\xFF", "/q/a/z", "/q", "/q/", "/r/a", "/q0", "/q/A", "/q/a"}) {
    addAt(path);
  }
  const std::vector<std::string> all = {"/q/", "/q/A", "/q/a", "/q/a/z", "/q/b", "/q/\xFF\xFF"};
  EXPECT_EQ(pathsOf("/q/", "", 100), all);
  std::vector<std::string> paged;
  std::string after;
  for (int page = 0; page < 10; ++page) {
    const std::vector<std::string> found = pathsOf("/q/", after, 2);
    if (found.empty()) break;
    paged.insert(paged.end(), found.begin(), found.end());
    after = found.back();
  }
  EXPECT_EQ(paged, all);
  EXPECT_EQ(pathsOf("/q/\xFF", "", 100), std::vector<std::string>{"/q/\xFF\xFF"});
  EXPECT_TRUE(pathsOf("/q/", "/r", 100).empty());
}

TEST_F(StoreContract, RefusesAPrefixThatEndsNowhere) {
  std::vector<IndexPath> paths{{1, "before"}};
  EXPECT_EQ(store_->listPaths("", "", 100, paths).error, StoreError::InvalidArgument);
  EXPECT_EQ(store_->listPaths("\xFF\xFF", "", 100, paths).error, StoreError::InvalidArgument);
  EXPECT_EQ(paths.size(), 1u);
}

TEST_F(StoreContract, BeginsAnEffectOnce) {
  const EffectKey key = keyOf(1, 1);
  EXPECT_EQ(begin(key, claimOf("a", 1000)).state, EffectState::Begun);
  EXPECT_EQ(begin(key, claimOf("b", 1001)).state, EffectState::UnderWay);
  EXPECT_EQ(begin(keyOf(1, 2), claimOf("b", 1001)).state, EffectState::Begun);
  EXPECT_EQ(begin(keyOf(2, 1), claimOf("b", 1001)).state, EffectState::Begun);
}

TEST_F(StoreContract, GivesTheResultOfAFinishedEffect) {
  const EffectKey key = keyOf(1, 1);
  begin(key, claimOf("a", 1000));
  const std::string result("a/b\0c", 5);
  ASSERT_TRUE(store_->finishEffect(key, "a", result).ok());
  const EffectAnswer answer = begin(key, claimOf("b", 100'000));
  EXPECT_EQ(answer.state, EffectState::Finished);
  EXPECT_EQ(answer.result, result);
}

TEST_F(StoreContract, LetsAnEffectBeTakenOverWhenItsLeaseIsOut) {
  const EffectKey key = keyOf(1, 1);
  begin(key, claimOf("a", 1000, "first"));
  EXPECT_EQ(begin(key, claimOf("b", 1059)).state, EffectState::UnderWay);
  const EffectAnswer answer = begin(key, claimOf("b", 1060, "second"));
  EXPECT_EQ(answer.state, EffectState::TakenOver);
  EXPECT_EQ(answer.result, "first");
  EXPECT_EQ(begin(key, claimOf("c", 1061)).state, EffectState::UnderWay);
  EXPECT_EQ(store_->finishEffect(key, "a", "x").error, StoreError::Conflict);
  EXPECT_TRUE(store_->finishEffect(key, "b", "second").ok());
}

TEST_F(StoreContract, ForgetsAnAbandonedEffect) {
  const EffectKey key = keyOf(1, 1);
  begin(key, claimOf("a", 1000));
  EXPECT_TRUE(store_->abandonEffect(key, "b").ok()) << "somebody else's stays";
  EXPECT_EQ(begin(key, claimOf("b", 1001)).state, EffectState::UnderWay);
  EXPECT_TRUE(store_->abandonEffect(key, "a").ok());
  EXPECT_EQ(begin(key, claimOf("b", 1001)).state, EffectState::Begun);
  ASSERT_TRUE(store_->finishEffect(key, "b", "x").ok());
  EXPECT_TRUE(store_->abandonEffect(key, "b").ok()) << "a finished one stays";
  EXPECT_EQ(begin(key, claimOf("c", 1002)).state, EffectState::Finished);
}

TEST_F(StoreContract, OpensAFinishedEffectAgain) {
  const EffectKey key = keyOf(1, 1);
  begin(key, claimOf("a", 1000));
  EXPECT_TRUE(store_->reopenEffect(key, "there").ok()) << "an unfinished one stays";
  EXPECT_EQ(begin(key, claimOf("b", 1001)).state, EffectState::UnderWay);
  ASSERT_TRUE(store_->finishEffect(key, "a", "there").ok());
  EXPECT_TRUE(store_->reopenEffect(key, "elsewhere").ok()) << "one with another result stays";
  EXPECT_EQ(begin(key, claimOf("b", 1001)).state, EffectState::Finished);
  EXPECT_TRUE(store_->reopenEffect(key, "there").ok());
  EXPECT_EQ(begin(key, claimOf("b", 1001)).state, EffectState::Begun);
}

TEST_F(StoreContract, FinishesNothingThatNobodyBegan) {
  EXPECT_EQ(store_->finishEffect(keyOf(1, 1), "a", "x").error, StoreError::Conflict);
  EXPECT_TRUE(store_->abandonEffect(keyOf(1, 1), "a").ok());
  EXPECT_TRUE(store_->forgetMessages({keyOf(1, 1).message}).ok());
}

TEST_F(StoreContract, ForgetsEveryEffectOfMessages) {
  begin(keyOf(1, 1), claimOf("a", 1000));
  begin(keyOf(1, 2), claimOf("a", 1000));
  begin(keyOf(2, 1), claimOf("a", 1000));
  begin(keyOf(3, 1), claimOf("a", 1000));
  ASSERT_TRUE(store_->finishEffect(keyOf(1, 2), "a", "x").ok());
  ASSERT_TRUE(store_->forgetMessages({}).ok());
  ASSERT_TRUE(store_->forgetMessages({keyOf(1, 0).message, keyOf(3, 0).message}).ok());
  EXPECT_EQ(begin(keyOf(1, 1), claimOf("b", 1001)).state, EffectState::Begun);
  EXPECT_EQ(begin(keyOf(1, 2), claimOf("b", 1001)).state, EffectState::Begun);
  EXPECT_EQ(begin(keyOf(2, 1), claimOf("b", 1001)).state, EffectState::UnderWay);
  EXPECT_EQ(begin(keyOf(3, 1), claimOf("b", 1001)).state, EffectState::Begun);
}

TEST_F(StoreContract, DropsOldEffects) {
  begin(keyOf(1, 1), claimOf("a", 999));
  begin(keyOf(1, 2), claimOf("a", 1000));
  std::size_t dropped = 0;
  ASSERT_TRUE(store_->forgetBefore(1000, dropped).ok());
  EXPECT_EQ(dropped, 1u);
  EXPECT_EQ(begin(keyOf(1, 1), claimOf("b", 1001)).state, EffectState::Begun);
  EXPECT_EQ(begin(keyOf(1, 2), claimOf("b", 1001)).state, EffectState::UnderWay);
}

TEST_F(StoreContract, FinishesAnEffectWithItsRow) {
  const EffectKey key = keyOf(1, 1);
  begin(key, claimOf("a", 1000));
  IndexEntry entry;
  entry.path = "/x";
  const MessageIndex::Finishes finishes{key, "a", "/x"};
  std::int64_t row = 0;
  ASSERT_TRUE(store_->addEntry(entry, &finishes, row).ok());
  EXPECT_GT(row, 0);
  const EffectAnswer answer = begin(key, claimOf("b", 1001));
  EXPECT_EQ(answer.state, EffectState::Finished);
  EXPECT_EQ(answer.result, "/x");
}

TEST_F(StoreContract, AddsNoRowForAnEffectThatIsSomebodyElses) {
  const EffectKey key = keyOf(1, 1);
  begin(key, claimOf("a", 1000));
  begin(key, claimOf("b", 2000));
  IndexEntry entry;
  entry.path = "/x";
  const MessageIndex::Finishes finishes{key, "a", "/x"};
  std::int64_t row = 7;
  EXPECT_EQ(store_->addEntry(entry, &finishes, row).error, StoreError::Conflict);
  EXPECT_EQ(row, 7);
  EXPECT_TRUE(rowsOf({}).empty());
  EXPECT_EQ(begin(key, claimOf("c", 2001)).state, EffectState::UnderWay);
}

}  // namespace
