// A listing among changes. For stores that several may use at once.
#include <gtest/gtest.h>

#include <atomic>
#include <list>
#include <map>
#include <string>
#include <thread>

#include "library/platform/kavi_named_obj.h"
#include "library/platform/rdbms_interface.h"
#include "tests/contract/subjects.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using namespace host::store;

constexpr int kObjects = 3000;
constexpr int kChanges = 12;

// Puts a policy of stamps whose names begin with `letter` in the place of the one that is there.
StoreStatus replaceAll(PolicyStore& store, char letter) {
  PolicyRecord policy;
  if (StoreStatus status = store.readPolicy(policy); !status.ok()) return status;
  policy.objects.clear();
  for (int i = 0; i < kObjects; ++i) {
    ObjectRecord& object = policy.objects.emplace_back();
    object.id = policy.lastObjectId + static_cast<std::uint32_t>(i) + 1;
    object.owner = 1;
    object.type = KaviNamedObj::StampType;
    object.name = letter + std::to_string(i);
  }
  std::int64_t revision = 0;
  return store.replacePolicy(policy, {"writer", 1}, revision);
}

TEST(ListingContract, IsOfOneStateWhateverOthersChange) {
  const testing_host::TempFolder temp;
  const contract::ObjectsInUse used = contract::useObjects(temp.path());
  ASSERT_TRUE(replaceAll(*used, 'A').ok());
  std::atomic<bool> isOver = false;
  StoreStatus written;
  std::thread writer([&] {
    for (int i = 0; i < kChanges && written.ok(); ++i) {
      written = replaceAll(*used, i % 2 == 0 ? 'B' : 'A');
    }
    isOver = true;
  });
  int listings = 0;
  bool isWhole = true;
  std::map<char, int> found;
  while (isWhole && !isOver) {
    std::list<SummaryNamedObject> rows;
    Kavi::RdbmsInterface database;
    found.clear();
    isWhole = KaviNamedObj::getIds(database, 1, KaviNamedObj::StampType, rows) == 0;
    for (const SummaryNamedObject& row : rows) ++found[row.name[0]];
    isWhole = isWhole && found.size() == 1 && found.begin()->second == kObjects;
    ++listings;
  }
  writer.join();
  EXPECT_TRUE(written.ok()) << written.text;
  EXPECT_TRUE(isWhole) << found['A'] << " of the one policy, " << found['B'] << " of the other";
  EXPECT_GT(listings, 1);
}

}  // namespace
