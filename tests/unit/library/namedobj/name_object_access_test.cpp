#include "library/namedobj/name_object_access.h"

#include <list>
#include <string>

#include "library/actions/modification/stamp.h"
#include "tests/fakes/named_object_store.h"
#include "tests/unit/library/fault_sweep.h"
#include "tests/unit/library/library_test.h"

namespace {

using Access = NameObjectAccess;

fakes::NamedObjectStore& store() { return fakes::NamedObjectStore::instance(); }

void construct(KaviAction& action, const std::string& setting) {
  ASSERT_TRUE(action.construct(setting.c_str(), static_cast<unsigned int>(setting.size())));
}

class NameObjectAccessTest : public LibraryTest {
 protected:
  NameObjectAccessTest() { store().clear(); }
  // Every interface that was opened is closed again.
  ~NameObjectAccessTest() override { EXPECT_EQ(store().openCount(), 0); }

  // What the store was asked, between the opening and the closing of one interface.
  Texts asked() const {
    Texts calls = store().calls();
    EXPECT_GE(calls.size(), 2u);
    if (calls.size() < 2) return calls;
    EXPECT_EQ(calls.front(), "open");
    EXPECT_EQ(calls.back(), "close");
    return {calls.begin() + 1, calls.end() - 1};
  }

  Access access{KaviNamedObj::StampType};
  unsigned int id = 5;
};

TEST_F(NameObjectAccessTest, ListsInTheStoresOrder) {
  store().addRow({9, 1, 0, "later"});
  store().addRow({3, 0, 7, std::string("a\0b", 3)});
  std::list<NameObjectSummary> objects(4);
  EXPECT_EQ(access.getList(12, objects), Access::Success);
  EXPECT_EQ(asked(), Texts{"getIds 12 2"});
  ASSERT_EQ(objects.size(), 2u);
  EXPECT_EQ(objects.front().id, 9u);
  EXPECT_EQ(objects.front().name, "later");
  EXPECT_EQ(objects.front().firstFlag, 1);
  EXPECT_EQ(objects.front().secondFlag, 0);
  EXPECT_EQ(objects.back().id, 3u);
  EXPECT_EQ(objects.back().name, std::string("a\0b", 3));
  EXPECT_EQ(objects.back().firstFlag, 0);
  EXPECT_EQ(objects.back().secondFlag, 7);
}

TEST_F(NameObjectAccessTest, LeavesTheListEmptyWhenTheStoreCannotList) {
  store().answer(8);
  std::list<NameObjectSummary> objects(4);
  EXPECT_EQ(access.getList(12, objects), Access::ListFailed);
  EXPECT_TRUE(objects.empty());
}

TEST_F(NameObjectAccessTest, GivesAFreshSummaryZeroes) {
  const NameObjectSummary fresh;
  EXPECT_EQ(fresh.id, 0u);
  EXPECT_EQ(fresh.name, "");
  EXPECT_EQ(fresh.firstFlag, 0);
  EXPECT_EQ(fresh.secondFlag, 0);
}

TEST_F(NameObjectAccessTest, Adds) {
  EXPECT_EQ(access.add(7, "legal", "text", id), Access::Success);
  EXPECT_EQ(asked(), Texts{"add 7 legal text 2"});
  EXPECT_EQ(id, 4711u);
}

TEST_F(NameObjectAccessTest, SaysThatTheStoreRefusedToAdd) {
  store().answer(-3);
  EXPECT_EQ(access.add(7, "legal", "text", id), Access::AddRefused);
  EXPECT_EQ(id, 5u);
}

TEST_F(NameObjectAccessTest, HandsOnTheNumbersOfAnUpdateInReverse) {
  store().addContent(30, "before", "text");
  EXPECT_EQ(access.update(7, 30, "legal", "text"), Access::Success);
  EXPECT_EQ(asked(), Texts{"modify 30 7 legal text 2"});
}

TEST_F(NameObjectAccessTest, SaysThatTheStoreRefusedToModify) {
  store().answer(1);
  EXPECT_EQ(access.update(7, 30, "legal", "text"), Access::ModifyRefused);
}

struct TextsCase {
  const char* name;
  const char* content;
  int result;
};

TEST_F(NameObjectAccessTest, RefusesMissingTextsAndReservedNames) {
  const TextsCase cases[] = {
      {nullptr, "text", Access::MissingArgument},  {"", "text", Access::MissingArgument},
      {"name", nullptr, Access::MissingArgument},  {"name", "", Access::MissingArgument},
      {nullptr, nullptr, Access::MissingArgument}, {"", "", Access::MissingArgument},
      {"OPP:x", "", Access::MissingArgument},      {"OPP:x", nullptr, Access::MissingArgument},
      {"OPP:", "text", Access::ReservedName},      {"OPP:mine", "text", Access::ReservedName},
  };
  for (const TextsCase& texts : cases) {
    EXPECT_EQ(access.add(7, texts.name, texts.content, id), texts.result);
    EXPECT_EQ(access.update(7, 30, texts.name, texts.content), texts.result);
  }
  EXPECT_EQ(store().calls(), Texts());
  EXPECT_EQ(id, 5u);
}

TEST_F(NameObjectAccessTest, TakesNamesThatOnlyResembleTheReservedOnes) {
  store().addContent(30, "before", "text");
  for (const char* name : {"opp:x", "Opp:x", "OPP", "OPP-x", " OPP:x", "xOPP:"}) {
    EXPECT_EQ(access.add(8, name, "text", id), Access::Success) << name;
    EXPECT_EQ(access.update(7, 30, name, "text"), Access::Success) << name;
  }
}

TEST_F(NameObjectAccessTest, Reads) {
  store().addContent(30, "legal", "text");
  std::string name = "before";
  std::string content = "before";
  EXPECT_EQ(access.get(30, name, content), Access::Success);
  EXPECT_EQ(asked(), Texts{"getContentBlob 30"});
  EXPECT_EQ(name, "legal");
  EXPECT_EQ(content, "text");
  EXPECT_EQ(access.get(31, name, content), Access::ReadFailed);
}

TEST_F(NameObjectAccessTest, PassesTheStoresAnswerToARemovalBack) {
  for (const int result : {0, 1, -1, 1405, 123456}) {
    store().clear();
    store().addContent(30, "legal", "text");
    store().answer(result);
    EXPECT_EQ(access.remove(30, 7), result);
    EXPECT_EQ(asked(), Texts{"remove 30 7"});
  }
}

class BindingTest : public NameObjectAccessTest {
 protected:
  BindingTest() {
    for (const unsigned int known : {7u, 12u}) store().addContent(known, "name", "text");
  }
  Ids bound() {
    Ids ids;
    access.getBindings(action, ids);
    return ids;
  }

  ActStamp action;
};

TEST_F(BindingTest, CopiesTheIds) {
  construct(action, "2-12-7");
  Ids ids{1, 2, 3};
  EXPECT_EQ(access.getBindings(action, ids), Access::Success);
  EXPECT_EQ(ids, (Ids{12, 7}));
  EXPECT_EQ(store().calls(), Texts());
}

TEST_F(BindingTest, LeavesTheOutputAloneForAnActionWithoutIds) {
  Ids ids{1, 2, 3};
  EXPECT_EQ(access.getBindings(action, ids), Access::MissingArgument);
  EXPECT_EQ(ids, (Ids{1, 2, 3}));
}

TEST_F(BindingTest, RefusesAnEmptyListWithoutAskingTheStore) {
  construct(action, "2-12-7");
  EXPECT_EQ(access.bind(action, {}), Access::MissingArgument);
  EXPECT_EQ(store().calls(), Texts());
  EXPECT_EQ(bound(), (Ids{12, 7}));
}

TEST_F(BindingTest, ChecksTheOldIdsAndNotTheNewOnes) {
  construct(action, "2-12-7");
  const KaviActionN& constant = action;
  EXPECT_EQ(access.bind(constant, {99, 98, 99}), Access::Success);
  EXPECT_EQ(asked(), (Texts{"getContentBlob 12", "getContentBlob 7"}));
  EXPECT_EQ(bound(), (Ids{99, 98, 99}));
  EXPECT_EQ(action.serialize(), "3-99-98-99");
}

TEST_F(BindingTest, StopsAtTheFirstOldIdThatIsGone) {
  construct(action, "3-12-50-7");
  EXPECT_EQ(access.bind(action, {7}), Access::ReadFailed);
  EXPECT_EQ(asked(), (Texts{"getContentBlob 12", "getContentBlob 50"}));
  EXPECT_EQ(bound(), (Ids{12, 50, 7}));
}

TEST_F(BindingTest, BindsAnActionWithoutIds) {
  store().answer(9);
  EXPECT_EQ(access.bind(action, {7}), Access::Success);
  EXPECT_EQ(asked(), Texts());
  EXPECT_EQ(bound(), Ids{7});
}

using Run = sweep::Trial;

// Prepares the store and an access, runs one call under the fault, and says what it answered.
template <class Call>
int answered(Run& trial, Call call) {
  store().clear();
  store().addRow({9, 1, 0, std::string(100, 'n')});
  store().addContent(7, std::string(100, 'n'), std::string(100, 'c'));
  Access access(KaviNamedObj::StampType);
  int result = 0;
  trial.run([&] { result = call(access); });
  EXPECT_EQ(store().openCount(), 0);
  store().clear();
  return result;
}

bool expectOneOf(int result, int failure) {
  EXPECT_TRUE(result == Access::Success || result == failure) << result;
  return result == Access::Success;
}

const sweep::Operation kOperations[] = {
    {"NameObjectAccess::getList",
     [](Run& trial) {
       std::list<NameObjectSummary> objects(1);
       const int result =
           answered(trial, [&](Access& access) { return access.getList(1, objects); });
       EXPECT_EQ(objects.size(), result == Access::Success ? 1u : 0u);
       return expectOneOf(result, Access::ListFailed);
     }},
    {"NameObjectAccess::add",
     [](Run& trial) {
       unsigned int id = 5;
       const int result =
           answered(trial, [&](Access& access) { return access.add(1, "name", "content", id); });
       EXPECT_EQ(id, result == Access::Success ? 4711u : 5u);
       return expectOneOf(result, Access::AddRefused);
     }},
    {"NameObjectAccess::update",
     [](Run& trial) {
       return expectOneOf(
           answered(trial, [](Access& access) { return access.update(1, 7, "name", "content"); }),
           Access::ModifyRefused);
     }},
    {"NameObjectAccess::get",
     [](Run& trial) {
       std::string name;
       std::string content;
       return expectOneOf(
           answered(trial, [&](Access& access) { return access.get(7, name, content); }),
           Access::ReadFailed);
     }},
    {"NameObjectAccess::remove",
     [](Run& trial) {
       const int result = answered(trial, [](Access& access) { return access.remove(7, 1); });
       const int fault =
           trial.kind() == sweep::FaultKind::PlatformFailure ? 77 : Access::kRemoveFailed;
       return expectOneOf(result, fault);
     }},
    {"NameObjectAccess::bind",
     [](Run& trial) {
       ActStamp action;
       construct(action, "1-7");
       const Ids ids{1, 2, 3, 4, 5, 6};
       const int result = answered(trial, [&](Access& access) { return access.bind(action, ids); });
       EXPECT_EQ(action.serialize(), result == Access::Success ? "6-1-2-3-4-5-6" : "1-7");
       return expectOneOf(result, Access::ReadFailed);
     }},
    {"NameObjectAccess::getBindings",
     [](Run& trial) {
       ActStamp action;
       construct(action, "1-7");
       Ids ids;
       const int result =
           answered(trial, [&](Access& access) { return access.getBindings(action, ids); });
       return expectOneOf(result, Access::MissingArgument);
     }},
};

INSTANTIATE_TEST_SUITE_P(NameObjectAccess, FaultSweepTest, sweep::each(kOperations), sweep::nameOf);

}  // namespace
