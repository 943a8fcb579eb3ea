#include "library/framework/marked_entities.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <utility>

namespace {

using Items = std::vector<std::pair<unsigned int, std::uintptr_t>>;

struct ListCase {
  const char* what;
  std::string list;
  Items items;
  std::size_t end;
  bool complete;
};

// 63 and 64 characters.
const std::string kLongest = "1 " + std::string(60, '0') + "a";
const std::string kTooLong = "1 " + std::string(61, '0') + "a";

const ListCase kLists[] = {
    {"empty", "", {}, 0, true},
    {"one item", "1 a", {{1, 0xa}}, 3, true},
    {"two items", "1 a;2 ff", {{1, 0xa}, {2, 0xff}}, 8, true},
    {"separator behind the last", "1 a;", {{1, 0xa}}, 4, true},
    {"the width of a pointer", "7 7ffcdeadbeef0010", {{7, 0x7ffcdeadbeef0010}}, 18, true},
    {"capitals and 0x", "7 0xDEADBEEF", {{7, 0xdeadbeef}}, 12, true},
    {"several blanks", " 7 \t ff", {{7, 0xff}}, 7, true},
    {"no blank where a letter ends the id", "7ff", {{7, 0xff}}, 3, true},
    {"text behind the handle", "7 ff and more;8 1", {{7, 0xff}, {8, 1}}, 17, true},
    {"id beyond 32 bits", "4294967299 ff", {{3, 0xff}}, 13, true},
    {"63 characters", kLongest, {{1, 0xa}}, 63, true},
    {"64 characters", kTooLong, {}, 0, false},
    {"64 characters behind a good one", "2 b;" + kTooLong, {{2, 0xb}}, 4, false},
    {"handle 0", "1 0", {}, 0, false},
    {"handle 0 behind a good one", "1 a;2 0;3 c", {{1, 0xa}}, 4, false},
    {"no handle", "1", {}, 0, false},
    {"no handle behind a good one", "1 a;2 ;3 c", {{1, 0xa}}, 4, false},
    {"empty item", "1 a;;3 c", {{1, 0xa}}, 4, false},
    {"no id", "a b", {}, 0, false},
    {"no hexadecimal", "1 x", {}, 0, false},
    {"separator only", ";", {}, 0, false},
    {"ends at a NUL", std::string("1 a\0;2 b", 8), {{1, 0xa}}, 3, true},
};

TEST(MarkedEntitiesTest, ReadsUpToTheFirstBadItem) {
  for (const ListCase& test : kLists) {
    SCOPED_TRACE(test.what);
    const library::MarkedEntities marked = library::readMarkedEntities(test.list);
    Items items;
    for (const library::MarkedEntity& mark : marked.entities) {
      items.emplace_back(mark.id, reinterpret_cast<std::uintptr_t>(mark.entity));
    }
    EXPECT_EQ(items, test.items);
    EXPECT_EQ(marked.end, test.end);
    EXPECT_EQ(marked.complete, test.complete);
  }
}

TEST(MarkedEntitiesTest, HandlesAreLoggedByTheirLow32Bits) {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): a handle is an address
  const auto* entity = reinterpret_cast<const OvMsgEntity*>(std::uintptr_t{0x7ffcdeadbeef});
  EXPECT_EQ(library::handleForLog(entity), 0xdeadbeefu);
  EXPECT_EQ(library::handleForLog(nullptr), 0u);
}

}  // namespace
