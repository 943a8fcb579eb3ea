#include <chrono>
#include <cstring>
#include <random>

#include "library/platform/scan_token.h"
#include "tests/unit/library/tokens/literal_replacement.h"
#include "tests/unit/library/tokens/token_test.h"

namespace {

using fakes::LogLines;
using Kavi::ScanToken;

class TokenReplacementTest : public TokenTest {
 protected:
  TokenReplacementTest() {
    tokens.set(ScanToken::Sender, "s@a.example");
    tokens.set(ScanToken::Recipients, "r@b.example");
    tokens.set(ScanToken::RuleName, "100%");
  }
};

struct TextCase {
  const char* what;
  std::string text;
  std::string result;
};

const TextCase kTexts[] = {
    {"empty", "", ""},
    {"no token", "plain text", "plain text"},
    {"one token alone", "%SENDER%", "s@a.example"},
    {"tokens and text", "from %SENDER% to %RCPTS%.", "from s@a.example to r@b.example."},
    {"adjacent tokens", "%SENDER%%RCPTS%", "s@a.exampler@b.example"},
    {"unknown token", "a %UNKNOWN% b", "a %UNKNOWN% b"},
    {"two percent signs", "50%% off", "50%% off"},
    {"only percent signs", "%%", "%%"},
    {"three percent signs", "%%%", "%%%"},
    {"four percent signs", "%%%%", "%%%%"},
    {"percent sign before a token", "100% sure %SENDER%", "100% sure s@a.example"},
    {"the closing sign of no token opens one", "%x%SENDER%", "%xs@a.example"},
    {"neither of two signs opens one", "%%SENDER%", "%%SENDER%"},
    {"two signs, then a token", "%%%SENDER%", "%%s@a.example"},
    {"a token, then two signs", "%SENDER%%%", "s@a.example%%"},
    {"unclosed token", "abc %SENDER", "abc %SENDER"},
    {"sign at the end", "abc %", "abc %"},
    {"unclosed after a token", "%SENDER% and %RCPTS", "s@a.example and %RCPTS"},
    {"case matters", "%sender% %Sender%", "%sender% %Sender%"},
    {"blanks matter", "% SENDER% %SENDER %", "% SENDER% %SENDER %"},
    {"a longer name is another name", "%SENDERS% %SENDE%", "%SENDERS% %SENDE%"},
    {"no token is as long as this", "%" + std::string(31, 'A') + "%SENDER%",
     "%" + std::string(31, 'A') + "s@a.example"},
    {"very long candidate", "%" + std::string(5000, 'A') + "%SENDER%",
     "%" + std::string(5000, 'A') + "s@a.example"},
    {"line breaks stay", "a\r\n%SENDER%\r\n", "a\r\ns@a.example\r\n"},
    {"values are not searched again", "%RULENAME%SENDER%", "100%SENDER%"},
    {"text ends at a NUL", std::string("a %SENDER%\0 b %RCPTS%", 21), "a s@a.example"},
    {"a NUL ends a token", std::string("a %SEN\0DER%", 11), "a %SEN"},
    {"no value and no function", "<%DETECTED%>", "<>"},
    {"bytes above ASCII", "\xE6\x97\xA5%SENDER%\xE6\x97\xA5",
     "\xE6\x97\xA5s@a.example\xE6\x97\xA5"},
};

TEST_F(TokenReplacementTest, ReplacesKnownTokensAndKeepsTheRest) {
  for (const TextCase& test : kTexts) {
    SCOPED_TRACE(test.what);
    EXPECT_EQ(replaced(test.text), test.result);
    EXPECT_EQ(literalReplacement(tokens, test.text, msg), test.result);
  }
}

TEST_F(TokenReplacementTest, GivesWhatTheStepsGiveOnRandomTexts) {
  const std::string kPieces[] = {"%",
                                 "%",
                                 "%%",
                                 "%SENDER%",
                                 "%RCPTS%",
                                 "SENDER",
                                 "%SENDER",
                                 "RCPTS%",
                                 "%FOO%",
                                 "x",
                                 " ",
                                 "%DETECTED%",
                                 "%SUBJECT%",
                                 "\r\n",
                                 std::string(40, 'y'),
                                 "%RULENAME%",
                                 "%SENDER%%",
                                 "\xE6\x97\xA5",
                                 std::string(1, '\0')};
  msg.facts().subject = "computed %SENDER%";
  std::mt19937 random(20);  // NOLINT(cert-msc51-cpp): the same texts in each run
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    for (auto left = random() % 24; left > 0; --left) {
      const std::string& piece = kPieces[random() % std::size(kPieces)];
      // A NUL now and then only, so that most texts are read to their end.
      text += piece[0] == '\0' && random() % 8 != 0 ? std::string("%") : piece;
    }
    Kavi::TokenMap<ScanToken> own = tokens;
    const std::string expected = literalReplacement(own, text, msg);
    ASSERT_EQ(replaced(text), expected) << text;
  }
  log.takeLines();
}

TEST_F(TokenReplacementTest, DropsTheFormerResult) {
  std::string result(5000, 'x');
  EXPECT_TRUE(ActionUtils::replaceTokens(tokens, "%SENDER%", msg, result));
  EXPECT_EQ(result, "s@a.example");
  EXPECT_TRUE(ActionUtils::replaceTokens(tokens, "", msg, result));
  EXPECT_EQ(result, "");
}

TEST_F(TokenReplacementTest, ReservesRoomForOrdinaryTexts) {
  std::string result;
  EXPECT_TRUE(ActionUtils::replaceTokens(tokens, "", msg, result));
  EXPECT_GE(result.capacity(), 1024u);
}

TEST_F(TokenReplacementTest, AppendsAValueUpToItsFirstNul) {
  tokens.set(ScanToken::Detected, std::string("ab\0cd", 5));
  EXPECT_EQ(replaced("<%DETECTED%>"), "<ab>");
  tokens.set(ScanToken::Detected, std::string("\0cd", 3));
  EXPECT_EQ(replaced("<%DETECTED%>"), "<>");
}

TEST_F(TokenReplacementTest, ReplacesATokenThatNobodyFilledInByNothingAndLogsIt) {
  tokens.erase(ScanToken::Sender);
  EXPECT_EQ(replaced("<%SENDER%>"), "<>");
  EXPECT_EQ(log.takeLines(), (LogLines{{3, "The value of token 'SENDER' is empty (unfilled)."}}));
  EXPECT_EQ(tokens.find(ScanToken::Sender), nullptr) << "nothing is stored for it";
  tokens.set(ScanToken::Protocol, "");
  EXPECT_EQ(replaced("%PROTOCOL%"), "");
  EXPECT_EQ(log.takeLines(), (LogLines{{3, "The value of token 'PROTOCOL' is empty (unfilled)."}}));
}

TEST_F(TokenReplacementTest, ComputesAValueOnce) {
  msg.facts().subject = "Hello";
  EXPECT_EQ(replaced("%SUBJECT%"), "Hello");
  EXPECT_EQ(replaced("%SUBJECT% %SUBJECT%"), "Hello Hello");
  EXPECT_EQ(msg.facts().calls, (Texts{"getSubject us-ascii (null)"}));
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::Subject), "Hello");
}

TEST_F(TokenReplacementTest, ComputesAgainWhatCameOutEmpty) {
  msg.facts().subject = "";
  EXPECT_EQ(replaced("<%SUBJECT%%SUBJECT%>"), "<>");
  EXPECT_EQ(msg.facts().calls.size(), 2u);
  EXPECT_EQ(tokens.find(ScanToken::Subject), nullptr);
}

TEST_F(TokenReplacementTest, PrefersAStoredValueToAFunction) {
  tokens.set(ScanToken::Subject, "tagged");
  msg.facts().subject = "Hello";
  EXPECT_EQ(replaced("%SUBJECT%"), "tagged");
  EXPECT_TRUE(msg.facts().calls.empty());
}

TEST_F(TokenReplacementTest, ReplacesAStoredEmptyValueByTheComputedOne) {
  tokens.set(ScanToken::Subject, "");
  msg.facts().subject = "Hello";
  EXPECT_EQ(replaced("%SUBJECT%"), "Hello");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::Subject), "Hello");
}

TEST_F(TokenReplacementTest, BringsListsIntoTheirPrintableForm) {
  tokens.set(ScanToken::FileName, "a.exe\nb.scr");
  tokens.set(ScanToken::VirusName, "one\ntwo");
  tokens.set(ScanToken::FileType, "a\nb");
  EXPECT_EQ(replaced("%FILENAME%|%VIRUSNAME%|%FILETYPE%"), "a.exe, b.scr|one, two|a\nb");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::FileName), "a.exe, b.scr");
}

TEST_F(TokenReplacementTest, ComputesTheDateOnceUnderTheNoSwitch) {
  tokens.set(ScanToken::DateTime, "long ago");
  EXPECT_EQ(replaced("%DATE&TIME%"), "long ago");
}

TEST_F(TokenReplacementTest, ComputesTheDateEachTimeUnderTheYesSwitch) {
  useKaviLocaleForTime();
  tokens.set(ScanToken::DateTime, "long ago");
  const std::string now = replaced("%DATE&TIME%");
  EXPECT_NE(now, "long ago");
  EXPECT_NE(now, "");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::DateTime), now);
}

class TokenValueTest : public TokenTest {};

TEST_F(TokenValueTest, IsNullForWhatIsNoToken) {
  tokens.set(ScanToken::Sender, "s");
  for (const char* text : {"", "%", "%%", "SENDER", "%SENDER", "SENDER%", "%sender%", "%SENDER% ",
                           " %SENDER%", "%UNKNOWN%"}) {
    EXPECT_EQ(valueOf(text), nullptr) << text;
  }
  EXPECT_EQ(valueOf(nullptr), nullptr);
  EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(TokenValueTest, PointsIntoTheTokenMap) {
  tokens.set(ScanToken::Sender, "s");
  EXPECT_EQ(valueOf("%SENDER%"), tokens.find(ScanToken::Sender)->c_str());
  msg.facts().headers = "A: b";
  const char* headers = valueOf("%HEADERS%");
  EXPECT_STREQ(headers, "A: b");
  EXPECT_EQ(headers, tokens.find(ScanToken::Headers)->c_str());
}

TEST_F(TokenValueTest, IsAStaticEmptyTextWhenThereIsNone) {
  const char* none = valueOf("%PROTOCOL%");
  EXPECT_STREQ(none, "");
  tokens.clear();
  EXPECT_STREQ(none, "");
  EXPECT_EQ(log.takeLines(3), (Texts{"The value of token 'PROTOCOL' is empty (unfilled)."}));
}

class ReplacementSpeedTest : public TokenTest {
 protected:
  // A hundred times what the linear time needs; a quadratic one would take hours.
  void expectQuick(const std::string& text) {
    const auto start = std::chrono::steady_clock::now();
    const std::string result = replaced(text);
    const auto spent = std::chrono::steady_clock::now() - start;
    EXPECT_LT(spent, std::chrono::seconds(10));
    EXPECT_EQ(result.size(), text.size());
  }
  static std::string repeated(const std::string& piece, std::size_t times) {
    std::string text;
    for (std::size_t count = 0; count < times; ++count) {
      text += piece;
    }
    return text;
  }
};

TEST_F(ReplacementSpeedTest, StaysLinearOnTextsFullOfPercentSigns) {
  constexpr std::size_t kSize = 8'000'000;
  expectQuick(std::string(100'000, '%'));
  expectQuick(std::string(kSize, '%'));
  expectQuick(repeated("%x", kSize / 2));
  expectQuick(repeated("%UNKNOWN", kSize / 8));
  expectQuick("%" + std::string(kSize, 'x') + "%");
  expectQuick(repeated("%" + std::string(2000, 'x'), kSize / 2000));
}

TEST_F(ReplacementSpeedTest, StaysLinearInTheValues) {
  tokens.set(ScanToken::Sender, std::string(1'000'000, 'v'));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(replaced(repeated("%SENDER%", 100)).size(), 100'000'000u);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

}  // namespace
