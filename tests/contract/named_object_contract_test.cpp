// What the platform's operations on named objects promise to the library.
#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

#include "library/platform/kavi_named_obj.h"
#include "library/platform/rdbms_interface.h"
#include "tests/contract/subjects.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using Type = KaviNamedObj::NaObjType;
using Names = std::vector<std::string>;

class NamedObjectContract : public ::testing::Test {
 protected:
  unsigned int add(unsigned int owner, Type type, const std::string& name,
                   const std::string& content = "content") {
    unsigned int id = 0;
    EXPECT_EQ(KaviNamedObj::add(database_, owner, name, content, type, id), 0) << name;
    EXPECT_GT(id, 0u);
    return id;
  }
  std::list<SummaryNamedObject> rows(unsigned int owner, Type type) {
    std::list<SummaryNamedObject> found;
    EXPECT_EQ(KaviNamedObj::getIds(database_, owner, type, found), 0);
    return found;
  }
  Names names(unsigned int owner, Type type) {
    Names found;
    for (const SummaryNamedObject& row : rows(owner, type)) found.push_back(row.name);
    return found;
  }
  // "name=content" of an object; "none" of one that is not there.
  std::string texts(unsigned int id) {
    std::string name = "before";
    std::string content = "before";
    if (KaviNamedObj::getContentBlob(database_, id, name, content) == 0)
      return name + "=" + content;
    EXPECT_EQ(name + content, "beforebefore");
    return "none";
  }

  testing_host::TempFolder temp_;
  contract::ObjectsInUse used_ = contract::useObjects(temp_.path());
  Kavi::RdbmsInterface database_;
};

TEST_F(NamedObjectContract, HasNothingAtFirst) {
  EXPECT_TRUE(database_.isOpen());
  EXPECT_TRUE(names(1, Type::StampType).empty());
  EXPECT_EQ(texts(1), "none");
}

TEST_F(NamedObjectContract, GivesBackWhatWasAdded) {
  const std::string name("a\0'; --\xFF", 8);
  const std::string content("1:\0:\xC3", 5);
  const unsigned int id = add(7, Type::StampType, name, content);
  EXPECT_EQ(texts(id), name + "=" + content);
  EXPECT_EQ(texts(id + 1), "none");
}

TEST_F(NamedObjectContract, ListsWhatAnOwnerHasOfATypeById) {
  const unsigned int first = add(7, Type::StampType, "z");
  add(8, Type::StampType, "of another owner");
  add(7, Type::NotificationType, "of another type");
  const unsigned int second = add(7, Type::StampType, "a");
  EXPECT_GT(second, first);
  EXPECT_EQ(names(7, Type::StampType), (Names{"z", "a"}));
  EXPECT_EQ(names(8, Type::StampType), Names{"of another owner"});
  EXPECT_EQ(names(7, Type::NotificationType), Names{"of another type"});
  EXPECT_TRUE(names(7, Type::QuarantineAreaType).empty());
  EXPECT_TRUE(names(9, Type::StampType).empty());
  const std::list<SummaryNamedObject> listed = rows(7, Type::StampType);
  ASSERT_EQ(listed.size(), 2u);
  EXPECT_EQ(listed.front().id, first);
  EXPECT_EQ(listed.back().id, second);
  EXPECT_EQ(listed.front().firstFlag, 0) << "no rule refers to it";
  EXPECT_EQ(listed.front().secondFlag, 0) << "it did not come with the product";
}

TEST_F(NamedObjectContract, PutsAListBehindWhatIsThere) {
  add(7, Type::StampType, "a");
  std::list<SummaryNamedObject> found(2);
  ASSERT_EQ(KaviNamedObj::getIds(database_, 7, Type::StampType, found), 0);
  ASSERT_EQ(found.size(), 3u);
  EXPECT_EQ(found.back().name, "a");
}

TEST_F(NamedObjectContract, KeepsNamesApartWithinOwnerAndType) {
  add(7, Type::StampType, "a");
  unsigned int id = 5;
  EXPECT_NE(KaviNamedObj::add(database_, 7, "a", "other", Type::StampType, id), 0);
  EXPECT_EQ(id, 5u);
  add(7, Type::StampType, "A");
  add(8, Type::StampType, "a");
  add(7, Type::NotificationType, "a");
  EXPECT_EQ(names(7, Type::StampType), (Names{"a", "A"}));
}

TEST_F(NamedObjectContract, ModifiesWhatHasTheIdTheOwnerAndTheType) {
  const unsigned int id = add(7, Type::StampType, "a", "old");
  add(7, Type::StampType, "taken");
  EXPECT_NE(KaviNamedObj::modify(database_, id, 8, "b", "new", Type::StampType), 0);
  EXPECT_NE(KaviNamedObj::modify(database_, id, 7, "b", "new", Type::NotificationType), 0);
  EXPECT_NE(KaviNamedObj::modify(database_, id + 9, 7, "b", "new", Type::StampType), 0);
  EXPECT_NE(KaviNamedObj::modify(database_, id, 7, "taken", "new", Type::StampType), 0);
  EXPECT_EQ(texts(id), "a=old");
  EXPECT_EQ(KaviNamedObj::modify(database_, id, 7, "a", "new", Type::StampType), 0) << "its own";
  EXPECT_EQ(texts(id), "a=new");
  EXPECT_EQ(KaviNamedObj::modify(database_, id, 7, "b", "", Type::StampType), 0);
  EXPECT_EQ(texts(id), "b=");
  EXPECT_EQ(names(7, Type::StampType), (Names{"b", "taken"}));
}

TEST_F(NamedObjectContract, RemovesWhatTheOwnerHas) {
  const unsigned int id = add(7, Type::StampType, "a");
  EXPECT_NE(KaviNamedObj::remove(database_, id, 8), 0);
  EXPECT_NE(KaviNamedObj::remove(database_, id + 1, 7), 0);
  EXPECT_EQ(names(7, Type::StampType), Names{"a"});
  EXPECT_EQ(KaviNamedObj::remove(database_, id, 7), 0);
  EXPECT_NE(KaviNamedObj::remove(database_, id, 7), 0);
  EXPECT_EQ(texts(id), "none");
  EXPECT_TRUE(names(7, Type::StampType).empty());
  EXPECT_GT(add(7, Type::StampType, "a"), id) << "an id is given once";
}

}  // namespace
