#include "host/delivery/escaped_name.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <string>

#include "host/core/text_escape.h"

namespace {

using host::delivery::appendUnescaped;
using host::delivery::escapedName;
using host::delivery::escapedPieces;
using host::delivery::kMaxPieceBytes;

std::string unescaped(const std::vector<std::string>& pieces) {
  std::string name;
  bool more = true;
  for (const std::string& piece : pieces) {
    EXPECT_TRUE(more) << piece;
    EXPECT_TRUE(appendUnescaped(piece, name, more)) << piece;
  }
  EXPECT_FALSE(more);
  return name;
}

// Every name has to give names of folders that are nothing else, and has to come back.
void check(const std::string& name) {
  const std::vector<std::string> pieces = escapedPieces(name);
  ASSERT_FALSE(pieces.empty());
  for (const std::string& piece : pieces) {
    EXPECT_FALSE(piece.empty());
    EXPECT_LE(piece.size(), kMaxPieceBytes);
    EXPECT_EQ(piece.find('/'), std::string::npos);
    EXPECT_EQ(piece.find('\0'), std::string::npos);
    EXPECT_EQ(piece.find('~'), std::string::npos);
    EXPECT_NE(piece.front(), '.');
    EXPECT_NE(piece.front(), '-');
    EXPECT_EQ(host::core::printable(piece), piece) << "safe on a terminal";
  }
  EXPECT_EQ(unescaped(pieces), name);
}

TEST(EscapedName, LeavesOrdinaryNamesReadable) {
  const std::pair<std::string, std::string> names[] = {
      {"Sales 2024", "Sales 2024"},
      {"Verträge", "Verträge"},
      {"アーカイブ", "アーカイブ"},
      {"a.b-c_d", "a.b-c_d"},
      {"", "%"},
      {"%", "%25"},
      {".", "%2E"},
      {"..", "%2E."},
      {"../../etc", "%2E.%2F..%2Fetc"},
      {"-rf", "%2Drf"},
      {"/", "%2F"},
      {"a~2", "a%7E2"},
      {".tmp-x", "%2Etmp-x"},
      {std::string("a\0b", 3), "a%00b"},
      {"a\nb", "a%0Ab"},
      {"\x7F", "%7F"},
      {"\xC2\x9B", "%C2%9B"},
      {"\xFFx", "%FFx"},
      {"\xC0\xAF", "%C0%AF"},
  };
  for (const auto& [name, escaped] : names) {
    EXPECT_EQ(escapedName(name), escaped);
    check(name);
  }
}

TEST(EscapedName, NeverGivesTheSameForTwoNames) {
  std::map<std::string, std::string> seen;
  const auto note = [&](const std::string& name) {
    check(name);
    EXPECT_TRUE(seen.emplace(escapedName(name), name).second) << escapedName(name);
  };
  note("");
  for (int a = 0; a < 256; ++a) {
    note(std::string(1, static_cast<char>(a)));
    for (int b = 0; b < 256; ++b) note({static_cast<char>(a), static_cast<char>(b)});
  }
}

TEST(EscapedName, CutsLongNamesBetweenCharacters) {
  for (const std::string& character : {std::string("x"), std::string("ä"), std::string("字"),
                                       std::string("😀"), std::string("/"), std::string(".")}) {
    std::string name;
    std::set<std::vector<std::string>> seen;
    for (int length = 0; length < 300; ++length) {
      check(name);
      EXPECT_TRUE(seen.insert(escapedPieces(name)).second);
      name += character;
    }
    EXPECT_GT(escapedPieces(name).size(), 1u);
  }
  check(std::string(5000, '%'));
}

TEST(EscapedName, TakesAnyBytes) {
  std::mt19937 random(7);
  for (int round = 0; round < 2000; ++round) {
    std::string name(random() % 400, '\0');
    for (char& c : name) c = static_cast<char>(random());
    check(name);
  }
}

TEST(EscapedName, TakesBackOnlyWhatItMade) {
  for (const char* piece : {"", "%2", "%2G", "%2f", "a%", "%zz"}) {
    std::string name = "before";
    bool more = true;
    EXPECT_FALSE(appendUnescaped(piece, name, more)) << piece;
    EXPECT_EQ(name, "before") << piece;
    EXPECT_TRUE(more) << piece;
  }
}

}  // namespace
