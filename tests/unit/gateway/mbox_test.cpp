#include "gateway/cli/mbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace gateway::cli {
namespace {

using testing::ElementsAre;

/// A text, handed out in pieces of at most \p piece bytes.
class TextSource final : public ByteSource {
 public:
  TextSource(std::string text, std::size_t piece) : text_(std::move(text)), piece_(piece) {}
  std::size_t read(std::string& out, std::size_t size) override {
    const std::size_t count = std::min({size, piece_, text_.size() - position_});
    out.append(text_, position_, count);
    position_ += count;
    return count;
  }
  const std::string& error() const override { return error_; }

 private:
  std::string text_;
  std::size_t piece_;
  std::size_t position_ = 0;
  std::string error_;
};

struct Read {
  std::vector<std::string> messages;
  std::vector<std::string> separators;
  std::string whole;
  bool isMbox = false;
};

Read readAll(const std::string& text, std::size_t piece = 1 << 20) {
  TextSource source(text, piece);
  MboxReader reader(source);
  Read read;
  while (const auto message = reader.next()) {
    read.messages.push_back(message->bytes);
    read.separators.push_back(message->separator);
    read.whole += message->bytes + message->separator;
  }
  read.isMbox = reader.isMbox();
  return read;
}

constexpr char kFirst[] = "From a@example.com Mon Mar  3 09:12:44 2025\nSubject: 1\n\none\n";
constexpr char kSecond[] = "From MAILER-DAEMON Mon Mar  3 09:12:45 2025 +0100\nSubject: 2\n\ntwo\n";

TEST(MboxReader, PartsMessagesAtFromLines) {
  const Read read = readAll(std::string(kFirst) + "\n" + kSecond);
  EXPECT_TRUE(read.isMbox);
  EXPECT_THAT(read.messages, ElementsAre(kFirst, kSecond));
  EXPECT_THAT(read.separators, ElementsAre("\n", ""));
}

TEST(MboxReader, GivesTheSameForPiecesOfAnySize) {
  const std::string text = std::string(kFirst) + "\n" + kSecond + "\r\n" + kFirst;
  const Read whole = readAll(text);
  EXPECT_EQ(whole.messages.size(), 3u);
  for (std::size_t piece = 1; piece < text.size(); ++piece) {
    const Read read = readAll(text, piece);
    EXPECT_EQ(read.messages, whole.messages) << piece;
    EXPECT_EQ(read.whole, text) << piece;
  }
}

TEST(MboxReader, KeepsCrLf) {
  const std::string text =
      "From a 09:12 2025\r\nA: b\r\n\r\none\r\n\r\nFrom b 09:12 2025\r\nA: c\r\n\r\n";
  const Read read = readAll(text);
  EXPECT_THAT(read.separators, ElementsAre("\r\n", ""));
  EXPECT_EQ(read.messages.at(0), "From a 09:12 2025\r\nA: b\r\n\r\none\r\n");
  EXPECT_EQ(read.whole, text);
}

TEST(MboxReader, ASingleMessageIsNoMbox) {
  for (const std::string& text :
       {std::string(), std::string("Subject: x\n\nbody\n"), std::string(kFirst),
        std::string("\n\n"), std::string("Subject: x\n\n\n") + kFirst}) {
    const Read read = readAll(text, 7);
    EXPECT_FALSE(read.isMbox) << text;
    EXPECT_THAT(read.messages, ElementsAre(text));
  }
}

TEST(MboxReader, TextThatBeginsWithFromPartsNothing) {
  const std::string body =
      "\nFrom here on it gets worse\nNot: a field\n"             // no date
      "\nFrom now until 10:30 in 2025\nno field\n"               // no field behind it
      "From a@example.com Mon Mar  3 09:12:44 2025\nA: b\n"      // no blank line before it
      "\n>From a@example.com Mon Mar  3 09:12:44 2025\nA: b\n";  // quoted
  const std::string text = std::string(kFirst) + body;
  EXPECT_THAT(readAll(text).messages, ElementsAre(text));
}

TEST(MboxReader, AnOverlongFromLinePartsNothing) {
  const std::string text =
      std::string(kFirst) + "\nFrom a 09:12 2025" + std::string(3000000, ' ') + "\nA: b\n";
  EXPECT_THAT(readAll(text, 1000).messages.size(), 1u);
}

TEST(MboxReader, KnowsFromLines) {
  for (const char* line :
       {"From a@b Mon Mar  3 09:12:44 2025", "From \"a b\"@c Mon Mar 3 9:12 2025",
        "From - Mon Mar  3 09:12:44 2025 remote from x", "From a Mon Mar 3 09:12:44 CET 2025"}) {
    EXPECT_TRUE(isMboxLine(line)) << line;
  }
  for (const char* line : {"", "From", "From ", "From a@b", "From a@b 2025", "From a 09:12",
                           "from a@b Mon Mar  3 09:12:44 2025", "From a 09:12 20255"}) {
    EXPECT_FALSE(isMboxLine(line)) << line;
  }
}

TEST(MboxReader, ManyMessages) {
  std::string text;
  for (int i = 0; i < 20000; ++i) text += std::string(kFirst) + "\n";
  const Read read = readAll(text, 65536);
  EXPECT_EQ(read.messages.size(), 20000u);
  EXPECT_EQ(read.whole, text);
}

}  // namespace
}  // namespace gateway::cli
