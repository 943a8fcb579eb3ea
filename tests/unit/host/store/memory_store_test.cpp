#include <gtest/gtest.h>

#include <cstdint>

#include "host/store/store.h"

namespace {

using host::store::ObjectRecord;
using host::store::PolicyRecord;

TEST(MemoryStore, KeepsWhatItIsGivenAndSharesNothing) {
  const auto store = host::store::makeMemoryStore();
  const auto other = host::store::makeMemoryStore();
  ObjectRecord object;
  object.type = 2;
  object.name = std::string("a\0b", 3);
  object.content = "content";
  std::uint32_t id = 0;
  ASSERT_TRUE(store->addObject(object, {"tester", 7}, id).ok());
  PolicyRecord policy;
  ASSERT_TRUE(store->readPolicy(policy).ok());
  ASSERT_EQ(policy.objects.size(), 1u);
  EXPECT_EQ(policy.objects[0].name, object.name);
  EXPECT_EQ(policy.revision, 1);
  ASSERT_TRUE(other->readPolicy(policy).ok());
  EXPECT_TRUE(policy.objects.empty());
  EXPECT_EQ(policy.revision, 0);
}

TEST(MemoryStore, OutlivesAFailedOperation) {
  const auto store = host::store::makeMemoryStore();
  ObjectRecord object;
  object.type = 2;
  object.name = "a";
  std::uint32_t id = 0;
  ASSERT_TRUE(store->addObject(object, {"tester", 7}, id).ok());
  EXPECT_EQ(store->addObject(object, {"tester", 7}, id).error, host::store::StoreError::NameTaken);
  EXPECT_TRUE(store->findObject(1, object).ok());
  EXPECT_EQ(store->location(), "memory");
}

}  // namespace
