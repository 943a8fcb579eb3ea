#include "gateway/cli/operation_result.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "gateway/cli/object_target.h"
#include "host/store/configured_store.h"
#include "library/namedobj/name_object_access.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using namespace gateway::cli;
using host::store::StoreError;
using Access = NameObjectAccess;

TEST(OperationResult, SaysEachCodeWithItsMeaning) {
  const std::pair<int, const char*> codes[] = {{0, "Success"},          {1004, "MissingArgument"},
                                               {1015, "ReservedName"},  {1401, "AddRefused"},
                                               {1402, "ModifyRefused"}, {1404, "ListFailed"},
                                               {1405, "ReadFailed"},    {77, "unknown"}};
  for (const auto& [code, word] : codes) {
    const OperationResult result = resultOf(code);
    EXPECT_EQ(result.code, code);
    EXPECT_EQ(result.word, word);
    EXPECT_EQ(result.ok(), code == 0);
    EXPECT_EQ(result.meaning.empty(), code == 0) << code;
    EXPECT_EQ(resultText(result).find("result " + std::to_string(code) + " (" + word + ")"), 0u);
  }
}

TEST(OperationResult, AddsWhatTheStoreSaid) {
  const testing_host::TempFolder temp;
  host::store::StoreStatus made;
  std::shared_ptr<host::store::Database> store =
      host::store::makeStore("sqlite:" + (temp / "store"), made);
  ASSERT_NE(store, nullptr) << made.text;
  host::store::configureStore(store, "tester");
  Access access(KaviNamedObj::StampType);
  unsigned int id = 0;
  ASSERT_EQ(access.add(0, "a", "x", id), Access::Success);
  const OperationResult taken = resultOf(access.add(0, "a", "x", id));
  EXPECT_EQ(taken.code, Access::AddRefused);
  EXPECT_NE(taken.meaning.find("another one has this name"), std::string::npos) << taken.meaning;
  EXPECT_NE(taken.meaning.find("choose another name"), std::string::npos) << taken.meaning;
  // What was wrong with the arguments never got to the store.
  EXPECT_EQ(resultOf(access.add(0, "OPP:a", "x", id)).meaning.find(temp.path()), std::string::npos);

  const OperationResult missing = removalOf(access.remove(id + 1, 0));
  EXPECT_EQ(missing.code, static_cast<int>(StoreError::NotFound));
  EXPECT_EQ(missing.word, "NotFound");
  EXPECT_NE(missing.meaning.find("kavi object list"), std::string::npos) << missing.meaning;
  EXPECT_TRUE(removalOf(access.remove(id, 0)).ok());
  host::store::configureStore(nullptr, {});
  EXPECT_EQ(removalOf(access.remove(id, 0)).word, "Unavailable");
  EXPECT_EQ(removalOf(Access::kRemoveFailed).word, "RemoveFailed");
}

TEST(ObjectTarget, KnowsTypesByEveryWord) {
  for (const char* word :
       {"quarantine-area", "quarantine_area", "quarantine areas", "3", "quarantine_areas"}) {
    const gateway::policy::ObjectKind* kind = requireKind(word);
    ASSERT_NE(kind, nullptr) << word;
    EXPECT_EQ(kind->type, KaviNamedObj::QuarantineAreaType) << word;
  }
  EXPECT_EQ(kindWord(3), "quarantine_area");
  EXPECT_EQ(kindWord(99), "99");
  ::testing::internal::CaptureStderr();
  for (const char* word : {"", "5", "0", "stmp", "-1"}) EXPECT_EQ(requireKind(word), nullptr);
  EXPECT_NE(::testing::internal::GetCapturedStderr().find("did you mean 'stamp'?"),
            std::string::npos);
}

TEST(ObjectTarget, ReadsIds) {
  EXPECT_EQ(parseId("4294967295"), 4294967295u);
  EXPECT_EQ(parseId("0"), 0u);
  for (const char* text : {"", "-1", "+1", "1 ", " 1", "4294967296", "0x1", "1.0"}) {
    EXPECT_EQ(parseId(text), std::nullopt) << text;
  }
}

}  // namespace
