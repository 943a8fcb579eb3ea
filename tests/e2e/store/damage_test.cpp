// Files that have lost bytes, and disks that have lost room. KAVI_DAMAGE_ROUNDS says how many files
// are spoilt.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "host/store/sqlite_store.h"
#include "library/platform/kavi_named_obj.h"
#include "tests/unit/host/core/child.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using namespace host::store;
using testing_host::inChild;
using testing_host::kNotPermitted;
using testing_host::TempFolder;

const ChangeNote kNote{"admin", 1};
constexpr unsigned int kMostSeconds = 60;

/// Objects with contents of all sizes, and rules that refer to some of them, in place of all that
/// `policy` holds.
void fill(PolicyRecord& policy, std::uint32_t objects, const std::string& mark) {
  policy.objects.clear();
  policy.rules.clear();
  const std::uint32_t last = policy.lastObjectId;
  for (std::uint32_t id = 1; id <= objects; ++id) {
    ObjectRecord object;
    object.id = last + id;
    object.type = KaviNamedObj::StampType;
    object.name = mark + std::to_string(id);
    object.content = std::string(id * 37 % 6000, 'c');
    policy.objects.push_back(std::move(object));
  }
  for (std::uint32_t id = 1; id <= objects / 2; ++id) {
    policy.rules.push_back(
        {id, mark, id, true, "condition", {{8, "1-1", {last + id}}, {1, "", {}}}});
  }
}

StoreStatus replace(PolicyStore& store, std::uint32_t objects, const std::string& mark) {
  PolicyRecord policy;
  StoreStatus status = store.readPolicy(policy);
  if (!status.ok()) return status;
  fill(policy, objects, mark);
  std::int64_t revision = 0;
  return store.replacePolicy(policy, kNote, revision);
}

/// Spoils `bytes` in one of the ways in which files are spoilt.
void spoil(std::string& bytes, std::mt19937& random) {
  const auto below = [&](std::size_t end) {
    return std::uniform_int_distribution<std::size_t>(0, end - 1)(random);
  };
  const std::size_t at = below(bytes.size());
  const std::size_t page = at / 4096 * 4096;
  switch (below(4)) {
    case 0:
      for (std::size_t times = below(16) + 1; times > 0; --times) {
        bytes[below(bytes.size())] = static_cast<char>(below(256));
      }
      return;
    case 1:
      bytes.resize(at);
      return;
    case 2:
      std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(page),
                  std::min<std::size_t>(4096, bytes.size() - page), '\0');
      return;
    default:
      for (std::size_t i = at; i < std::min(at + 512, bytes.size()); ++i) {
        bytes[i] = static_cast<char>(below(256));
      }
  }
}

enum Outcome { Sound, Told, Silent, Unclear };

Outcome judge(const StoreStatus& status) {
  if (status.ok()) return Sound;
  const bool clear = (status.error == StoreError::Damaged || status.error == StoreError::TooNew) &&
                     status.text.find("; ") != std::string::npos;
  if (!clear) ::dprintf(2, "%s\n", status.text.c_str());
  return clear ? Told : Unclear;
}

/// Works on the store at `path`. A fault that somebody meets has to be one that `check` finds.
int use(const std::string& path) {
  ::alarm(kMostSeconds);
  bool isKnown = false;
  {
    SqliteStore store(path);
    std::vector<std::string> faults;
    const StoreStatus status = store.check(faults);
    if (judge(status) == Unclear) return Unclear;
    isKnown = !status.ok() || !faults.empty();
  }
  Outcome worst = isKnown ? Told : Sound;
  SqliteStore store(path);
  PolicyRecord policy;
  std::vector<ObjectRecord> objects;
  std::uint32_t id = 0;
  for (const StoreStatus& status :
       {store.readPolicy(policy), store.listObjects({0, {}, 0, 1000}, objects),
        store.addObject({0, 1, 1, "added", "x"}, kNote, id), replace(store, 20, "new")}) {
    const Outcome outcome = judge(status);
    if (outcome == Unclear) return Unclear;
    if (outcome == Told && !isKnown) {
      ::dprintf(2, "not found by the check: %s\n", status.text.c_str());
      worst = Silent;
    }
  }
  return worst;
}

TEST(Damage, IsSaidAndFoundAndNeverACrash) {
  const char* wanted = std::getenv("KAVI_DAMAGE_ROUNDS");
  const int rounds = wanted != nullptr ? std::atoi(wanted) : 60;
  const TempFolder temp;
  {
    SqliteStore store(temp / "good");
    ASSERT_TRUE(replace(store, 40, "old").ok());
  }
  const std::string good = testing_host::contentOf(temp / "good");
  std::mt19937 random(1);
  int told = 0;
  for (int round = 0; round < rounds; ++round) {
    std::string bad = good;
    spoil(bad, random);
    const std::string path = temp / "bad" + std::to_string(round);
    testing_host::writeFile(path, bad);
    const int outcome = inChild([&] { return use(path); });
    EXPECT_TRUE(outcome == Sound || outcome == Told) << "round " << round << ": " << outcome;
    told += outcome == Told ? 1 : 0;
  }
  EXPECT_GT(told, rounds / 3);
}

TEST(Damage, OfTheLogLeavesWhatWasWrittenBefore) {
  const TempFolder temp;
  SqliteStore store(temp / "store");
  ASSERT_TRUE(replace(store, 10, "old").ok());
  const std::string file = testing_host::contentOf(temp / "store");
  const std::string log = testing_host::contentOf(temp / "store-wal");
  ASSERT_GT(log.size(), 4096u) << "the change stands in the log as yet";
  std::mt19937 random(2);
  for (int round = 0; round < 40; ++round) {
    std::string bad = log;
    spoil(bad, random);
    const std::string path = temp / "bad" + std::to_string(round);
    testing_host::writeFile(path, file);
    testing_host::writeFile(path + "-wal", bad);
    const int outcome = inChild([&] { return use(path); });
    EXPECT_EQ(outcome, Sound) << "round " << round;
  }
}

/// Changes policies on a small disk until it is full.
int fillDisk(const std::string& disk) {
  if (!testing_host::mountSmallDisk(disk.c_str(), "size=1m")) return kNotPermitted;
  SqliteStore store(disk + "/store");
  if (!replace(store, 10, "old").ok()) return 1;
  PolicyRecord before;
  if (!store.readPolicy(before).ok()) return 2;
  const StoreStatus full = replace(store, 600, "new");
  if (full.error != StoreError::Full) return 3;
  if (full.text.find("make room") == std::string::npos) return 4;
  PolicyRecord after;
  if (!store.readPolicy(after).ok()) return 5;
  if (after.objects != before.objects || after.rules != before.rules) return 6;
  std::vector<std::string> faults;
  if (!store.check(faults).ok() || !faults.empty()) return 7;
  if (::mount("none", disk.c_str(), nullptr, MS_REMOUNT, "size=32m") != 0) return 8;
  return replace(store, 600, "new").ok() ? 0 : 9;
}

TEST(Damage, IsNoneWhenTheDiskIsFull) {
  const TempFolder temp;
  std::filesystem::create_directory(temp / "disk");
  const int result = inChild([&] { return fillDisk(temp / "disk"); });
  if (result == kNotPermitted) GTEST_SKIP() << "this system lets nobody mount a disk";
  EXPECT_EQ(result, 0);
}

}  // namespace
