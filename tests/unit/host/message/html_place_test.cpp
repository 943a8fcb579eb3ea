// Where the body of an HTML document begins and ends: the scan of its tags against the tree.
#include <gtest/gtest.h>

#include <array>
#include <ctime>
#include <random>
#include <string>

#include "host/message/html_insertion.h"
#include "host/message/html_outline.h"
#include "host/message/html_tree.h"

namespace message_test {
namespace {

using host::message::htmlInsertion;
using host::message::HtmlOutline;
using host::message::outlineOf;
using host::message::treePlace;
using Place = OvMsgInsertPlace;

/// \p document with "^" at its place.
std::string marked(std::string document, Place place) {
  return document.insert(outlineOf(document, 0, place).place.at, "^");
}

std::string markedByTree(std::string document, Place place) {
  const auto found = treePlace(document, place);
  return found ? document.insert(*found, "^") : "no body";
}

struct Row {
  const char* top;  ///< with "^" at the top
  const char* end;
};

TEST(HtmlOutline, FindsTopAndEnd) {
  const std::array<Row, 14> rows{{
      {"<body>^x</body>", "<body>x^</body>"},
      {"^", "^"},
      {" ^x", " x^"},
      {"<html><head></head>^<p>x</html>", "<html><head></head><p>x^</html>"},
      {"<body a='>' b=\">\" c=>^ x", "<body a='>' b=\">\" c=> x^"},
      {"<!-- <body> --><body>^x<!-- </body> -->", "<!-- <body> --><body>x<!-- </body> -->^"},
      {"<!--><body>^x</body>", "<!--><body>x^</body>"},
      {"<!---><body>^x</body>", "<!---><body>x^</body>"},
      {"<!-- --!><body>^x</body>", "<!-- --!><body>x^</body>"},
      {"<title><body></title><BODY>^x</BODY >", "<title><body></title><BODY>x^</BODY >"},
      {"<body>^x</body></html>text<!-- c -->", "<body>x^</body></html>text<!-- c -->"},
      {"<body>^x</body></html><p>y</p>", "<body>x</body></html><p>y</p>^"},
      {"<body>^x</body></body></html>", "<body>x</body>^</body></html>"},
      {"</p><meta><body/>^x</body/>", "</p><meta><body/>x^</body/>"},
  }};
  for (const Row& row : rows) {
    std::string document(row.top);
    document.erase(document.find('^'), 1);
    EXPECT_EQ(marked(document, Place::Top), row.top);
    EXPECT_EQ(marked(document, Place::End), row.end);
    EXPECT_TRUE(outlineOf(document, 0, Place::End).isCertain) << document;
    EXPECT_EQ(markedByTree(document, Place::Top), row.top);
    EXPECT_EQ(markedByTree(document, Place::End), row.end);
  }
}

TEST(HtmlOutline, StaysInFrontOfWhatIsNotClosed) {
  for (const char* end : {"<p>x^<!-- never", "<p>x^<a href=\"never>", "<p>x^<script>never </scrip",
                          "<p>x^<textarea>never", "<p>x^<style>never</style"}) {
    std::string document(end);
    document.erase(document.find('^'), 1);
    EXPECT_EQ(marked(document, Place::End), end);
  }
}

TEST(HtmlTree, KnowsWhatTagsMeanInOtherElements) {
  const std::array<Row, 4> rows{{
      {"<body>^<svg><title></body></title></svg>x</body>",
       "<body><svg><title></body></title></svg>x^</body>"},
      {"<body>^x<template></body></template>", "<body>x<template></body></template>^"},
      {"<body>^x<select><option>y</body>", "<body>x^<select><option>y</body>"},
      {"<head><noscript><link></noscript></head><body>^x</body>",
       "<head><noscript><link></noscript></head><body>x^</body>"},
  }};
  for (const Row& row : rows) {
    std::string document(row.top);
    document.erase(document.find('^'), 1);
    EXPECT_EQ(markedByTree(document, Place::Top), row.top);
    EXPECT_EQ(markedByTree(document, Place::End), row.end);
  }
}

TEST(HtmlOutline, AgreesWithTheTreeWhereItIsCertain) {
  constexpr std::array<const char*, 30> kPieces{"<html>",
                                                "<head>",
                                                "</head>",
                                                "<title>a</title>",
                                                "<meta charset=utf-8>",
                                                "<body>",
                                                "</body>",
                                                "<body a='>' b=c>",
                                                "</html>",
                                                "<p>",
                                                "</p>",
                                                "<b>",
                                                "</b>",
                                                "<div class=\"x\">",
                                                "</div>",
                                                "text",
                                                " ",
                                                "\n",
                                                "<!-- c -->",
                                                "<!-- <body> </body> -->",
                                                "<br>",
                                                "<img/>",
                                                "&nbsp;",
                                                "<style>p{}</style>",
                                                "<script>a<b</script>",
                                                "<o:p>",
                                                "</o:p>",
                                                "<![if !mso]>",
                                                "<!DOCTYPE html>",
                                                "<a href=x>y</a>"};
  std::mt19937 random(4711);
  int compared = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string document;
    for (auto count = random() % 12; count > 0; --count) {
      document += kPieces[random() % kPieces.size()];
    }
    for (const Place place : {Place::Top, Place::End}) {
      const HtmlOutline outline = outlineOf(document, 0, place);
      // An end tag may open the body, which is empty then: before it or behind it is the same.
      const bool isAtEndTag = document.compare(outline.place.at, 2, "</") == 0;
      if (!outline.isCertain || (place == Place::Top && isAtEndTag)) continue;
      ASSERT_EQ(marked(document, place), markedByTree(document, place)) << round;
      ++compared;
    }
  }
  EXPECT_GT(compared, 30000);
}

TEST(HtmlInsertion, TakesLinearTime) {
  const auto secondsFor = [](const std::string& document) {
    const std::clock_t begin = std::clock();  // of the processor: the machine may be busy
    EXPECT_FALSE(htmlInsertion(document, 0, "x", Place::End).text.empty());
    return static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
  };
  const auto repeated = [](const char* piece, int count) {
    std::string text("<svg></svg>");  // the tree is asked where it can be
    for (int i = 0; i < count; ++i) text += piece;
    return text;
  };
  for (const char* piece : {"<div>", "<b id=1>", "<p><b>", "<table>", "<!--", "<a href='", "</x",
                            "<select>", "<script>", "<svg>", "<template>", "--", "<a x", "&"}) {
    EXPECT_LT(secondsFor(repeated(piece, 500000)), 5.0) << piece;
    EXPECT_LT(secondsFor(repeated(piece, 4000)), 5.0) << piece;
  }
}

}  // namespace
}  // namespace message_test
