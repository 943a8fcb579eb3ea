// The platform's named-object operations, and the administration's access through them, on a store
// in a file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "host/store/configured_store.h"
#include "host/store/sqlite_store.h"
#include "library/actions/disposition/quarantine.h"
#include "library/namedobj/name_object_access.h"
#include "library/namedobj/quarantine_area.h"
#include "library/platform/rdbms_interface.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using host::store::StoreError;
using Access = NameObjectAccess;

constexpr unsigned int kOwner = 7;

class PlatformStore : public ::testing::Test {
 protected:
  PlatformStore() { host::store::configureStore(store_, "tester"); }
  ~PlatformStore() override { host::store::configureStore(nullptr, {}); }

  unsigned int add(const char* name, const char* content) {
    unsigned int id = 0;
    EXPECT_EQ(access_.add(kOwner, name, content, id), Access::Success);
    return id;
  }

  testing_host::TempFolder temp_;
  std::shared_ptr<host::store::SqliteStore> store_ =
      std::make_shared<host::store::SqliteStore>(temp_ / "store");
  Access access_{KaviNamedObj::QuarantineAreaType};
};

TEST_F(PlatformStore, KeepsRecordsThroughTheirSettingsStrings) {
  uiQuarantineArea area;
  area.areaName = "virus:\xE3\x81\x82";
  area.agingDays = 14;
  area.agingEnabled = true;
  const unsigned int id = add("Viruses", area.serialize().c_str());

  std::string name;
  std::string content;
  ASSERT_EQ(access_.get(id, name, content), Access::Success);
  EXPECT_EQ(name, "Viruses");
  uiQuarantineArea read;
  ASSERT_TRUE(read.construct(content.c_str(), static_cast<unsigned int>(content.size())));
  EXPECT_EQ(read.areaName, area.areaName);
  EXPECT_EQ(read.agingDays, 14u);
}

TEST_F(PlatformStore, ListsChangesAndRemoves) {
  const unsigned int first = add("b", "1:1:x:");
  const unsigned int second = add("a", "1:1:y:");
  unsigned int other = 0;
  ASSERT_EQ(Access(KaviNamedObj::StampType).add(kOwner, "a", "z", other), Access::Success);

  EXPECT_EQ(access_.update(kOwner, second, "c", "2:1:z:"), Access::Success);
  EXPECT_EQ(access_.update(kOwner, second, "b", "2:1:z:"), Access::ModifyRefused) << "taken";
  EXPECT_EQ(access_.update(kOwner, other, "d", "2:1:z:"), Access::ModifyRefused) << "a stamp";
  EXPECT_EQ(access_.update(kOwner + 1, second, "d", "2:1:z:"), Access::ModifyRefused);
  unsigned int refused = 5;
  EXPECT_EQ(access_.add(kOwner, "b", "1:1:x:", refused), Access::AddRefused);
  EXPECT_EQ(refused, 5u);

  std::list<NameObjectSummary> objects;
  ASSERT_EQ(access_.getList(kOwner, objects), Access::Success);
  ASSERT_EQ(objects.size(), 2u);
  EXPECT_EQ(objects.front().id, first);
  EXPECT_EQ(objects.front().name, "b");
  EXPECT_EQ(objects.back().name, "c");
  EXPECT_EQ(objects.back().firstFlag, 0);
  EXPECT_EQ(objects.back().secondFlag, 0);

  EXPECT_EQ(access_.remove(second, kOwner), 0);
  EXPECT_EQ(access_.remove(second, kOwner), static_cast<int>(StoreError::NotFound));
  std::string name = "before";
  std::string content = "before";
  EXPECT_EQ(access_.get(second, name, content), Access::ReadFailed);
  EXPECT_EQ(name, "before");
  EXPECT_EQ(content, "before");
}

TEST_F(PlatformStore, ListsMoreThanOnePageInOrder) {
  for (int i = 0; i < 1003; ++i) add(std::to_string(i).c_str(), "x");
  std::list<NameObjectSummary> objects;
  ASSERT_EQ(access_.getList(kOwner, objects), Access::Success);
  ASSERT_EQ(objects.size(), 1003u);
  unsigned int last = 0;
  for (const NameObjectSummary& object : objects) {
    EXPECT_GT(object.id, last);
    last = object.id;
  }
}

TEST_F(PlatformStore, TellsWhatIsInUseAndKeepsIt) {
  const unsigned int id = add("area", "1:1:x:");
  host::store::PolicyRecord policy;
  ASSERT_TRUE(store_->readPolicy(policy).ok());
  policy.rules = {{1, "rule", 1, true, "", {{2, "1-" + std::to_string(id), {id}}}}};
  std::int64_t revision = 0;
  ASSERT_TRUE(store_->replacePolicy(policy, {"tester", 1}, revision).ok());
  EXPECT_EQ(access_.remove(id, kOwner), static_cast<int>(StoreError::InUse));
  std::list<NameObjectSummary> objects;
  ASSERT_EQ(access_.getList(kOwner, objects), Access::Success);
  ASSERT_EQ(objects.size(), 1u);
  EXPECT_EQ(objects.front().firstFlag, 1);
}

TEST_F(PlatformStore, TellsWhyTheLastOperationFailed) {
  add("a", "1:1:x:");
  EXPECT_TRUE(host::store::lastObjectOperation().ok());
  unsigned int id = 0;
  ASSERT_EQ(access_.add(kOwner, "a", "1:1:x:", id), Access::AddRefused);
  EXPECT_EQ(host::store::lastObjectOperation().error, StoreError::NameTaken);
  EXPECT_THAT(host::store::lastObjectOperation().text, ::testing::HasSubstr(temp_ / "store"));
  ASSERT_EQ(access_.add(kOwner, "b", "1:1:x:", id), Access::Success);
  EXPECT_TRUE(host::store::lastObjectOperation().ok());
  EXPECT_TRUE(host::store::lastObjectOperation().text.empty());
  host::store::configureStore(nullptr, {});
  ASSERT_NE(access_.remove(id, kOwner), 0);
  EXPECT_EQ(host::store::lastObjectOperation().error, StoreError::Unavailable);
}

TEST_F(PlatformStore, WritesDownWhoMadeAChange) {
  add("area", "1:1:x:");
  std::vector<host::store::AuditRecord> records;
  ASSERT_TRUE(store_->listAudit(0, 10, records).ok());
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].actor, "tester");
  EXPECT_EQ(records[0].what, "add quarantine area 'area' (1)");
  EXPECT_GT(records[0].at, 1'700'000'000);
}

TEST_F(PlatformStore, BindsOnlyWhileWhatIsBoundCanBeRead) {
  const unsigned int first = add("a", "1:1:x:");
  const unsigned int second = add("b", "1:1:y:");
  ActQuarantine action;
  ASSERT_EQ(access_.bind(action, {first}), Access::Success);
  ASSERT_EQ(access_.bind(action, {second, 999}), Access::Success) << "new ids are not looked at";
  EXPECT_EQ(access_.bind(action, {first}), Access::ReadFailed) << "999 is none";
  std::vector<unsigned int> ids;
  ASSERT_EQ(access_.getBindings(action, ids), Access::Success);
  EXPECT_THAT(ids, testing::ElementsAre(second, 999));
}

TEST_F(PlatformStore, FailsWithoutAStore) {
  host::store::configureStore(nullptr, {});
  EXPECT_FALSE(Kavi::RdbmsInterface().isOpen());
  unsigned int id = 5;
  std::list<NameObjectSummary> objects(2);
  std::string text;
  EXPECT_EQ(access_.add(kOwner, "a", "x", id), Access::AddRefused);
  EXPECT_EQ(access_.update(kOwner, 1, "a", "x"), Access::ModifyRefused);
  EXPECT_EQ(access_.getList(kOwner, objects), Access::ListFailed);
  EXPECT_TRUE(objects.empty());
  EXPECT_EQ(access_.get(1, text, text), Access::ReadFailed);
  EXPECT_EQ(access_.remove(1, kOwner), static_cast<int>(StoreError::Unavailable));
}

TEST_F(PlatformStore, GoesOnWithTheStoreThatAnInterfaceWasOpenedOn) {
  Kavi::RdbmsInterface database;
  host::store::configureStore(nullptr, {});
  unsigned int id = 0;
  EXPECT_EQ(KaviNamedObj::add(database, kOwner, "a", "x", KaviNamedObj::StampType, id), 0);
  EXPECT_GT(id, 0u);
}

}  // namespace
