#include "library/tokens/token_table.h"

#include <set>

#include "library/framework/init_action_lib.h"
#include "library/tokens/value_functions.h"
#include "tests/unit/library/tokens/token_test.h"

namespace {

using fakes::LogLines;
using library::TokenRow;

struct Expected {
  const char* text;
  int token;
  library::TokenValueFunction function;
};

const Expected kExpected[] = {
    {"%SENDER%", 32, nullptr},
    {"%RCPTS%", 33, nullptr},
    {"%HEADER_RCPTS%", 34, nullptr},
    {"%SUBJECT%", 36, library::fnSubject},
    {"%HEADERS%", 37, library::fnHeaders},
    {"%DATE&TIME%", 38, library::fnDateTime},
    {"%ORIGINALMAILID%", 40, nullptr},
    {"%MAILID%", 39, nullptr},
    {"%PROTOCOL%", 41, nullptr},
    {"%RULENAME%", 42, nullptr},
    {"%RULETYPE%", 43, nullptr},
    {"%DETECTED%", 44, nullptr},
    {"%ENTITY%", 60, nullptr},
    {"%FILENAME%", 45, nullptr},
    {"%FILETYPE%", 59, nullptr},
    {"%MSG_SIZE%", 58, nullptr},
    {"%ATTACH_SIZE%", 61, nullptr},
    {"%ATTACH_COUNT%", 62, nullptr},
    {"%ACTION%", 46, library::fnActions},
    {"%TACTION%", 47, library::fnTActions},
    {"%VIRUSACTION%", 52, nullptr},
    {"%QUARANTINE_PATH%", 48, library::fnQAFilePath},
    {"%QUARANTINE_AREA%", 49, nullptr},
    {"%VIRUSNAME%", 51, nullptr},
    {"%HOSTNAME%", 57, nullptr},
    {"%DEF_CHARSET%", 30, library::fnDCharset},
    {"%XMAILID%", 65, library::fnXmailid},
    {"%MAILCHARSET%", 5, library::fnMCharset},
    {"%SUSPICIOUS_URL%", 72, nullptr},
};

const char kListed[] =
    "Supporting tokens: %SENDER%,%RCPTS%,%HEADER_RCPTS%,%SUBJECT%,%HEADERS%,%DATE&TIME%,"
    "%ORIGINALMAILID%,%MAILID%,%PROTOCOL%,%RULENAME%,%RULETYPE%,%DETECTED%,%ENTITY%,%FILENAME%,"
    "%FILETYPE%,%MSG_SIZE%,%ATTACH_SIZE%,%ATTACH_COUNT%,%ACTION%,%TACTION%,%VIRUSACTION%,"
    "%QUARANTINE_PATH%,%QUARANTINE_AREA%,%VIRUSNAME%,%HOSTNAME%,%DEF_CHARSET%,%XMAILID%,"
    "%MAILCHARSET%,%SUSPICIOUS_URL%";

class TokenTableTest : public TokenTest {};

TEST_F(TokenTableTest, ListsTheTokensInOrderAndEndsWithAnEmptyText) {
  const TokenRow* row = ActionUtils::getTokenNames();
  for (const Expected& expected : kExpected) {
    EXPECT_STREQ(row->text, expected.text);
    EXPECT_EQ(static_cast<int>(row->token), expected.token);
    EXPECT_EQ(row->function, expected.function) << row->text;
    ++row;
  }
  EXPECT_STREQ(row->text, "");
}

TEST_F(TokenTableTest, PadsTheTextsWithNuls) {
  EXPECT_EQ(sizeof TokenRow::text, 32u);
  for (const TokenRow* row = ActionUtils::getTokenNames(); row->text[0] != '\0'; ++row) {
    const std::string text(row->text, sizeof row->text);
    EXPECT_EQ(text.find_last_not_of('\0') + 1, std::string(row->text).size());
  }
}

TEST_F(TokenTableTest, NamesEachTokenAndEachCodeOnce) {
  std::set<std::string> texts;
  std::set<int> codes;
  for (const Expected& expected : kExpected) {
    EXPECT_TRUE(texts.insert(expected.text).second);
    EXPECT_TRUE(codes.insert(expected.token).second);
  }
}

TEST_F(TokenTableTest, LogsTheSupportedTokens) {
  ActionUtils::_build_token_string_table();
  EXPECT_EQ(log.takeLines(), (LogLines{{3, kListed}}));
}

TEST_F(TokenTableTest, BuiltAgainGivesTheSameMaps) {
  ActionUtils::_build_token_string_table();
  ActionUtils::_build_token_string_table();
  log.takeLines();
  for (const Expected& expected : kExpected) {
    tokens.set(static_cast<Kavi::ScanToken>(expected.token), expected.text + std::string("!"));
  }
  for (const Expected& expected : kExpected) {
    EXPECT_EQ(valueOf(expected.text), expected.text + std::string("!"));
  }
}

TEST_F(TokenTableTest, StartUpBuildsTheMapsLast) {
  fakes::Settings settings;
  EXPECT_EQ(InitActionLib(settings, log), 1);
  const LogLines lines = log.takeLines();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), (fakes::LogLine{3, kListed}));
}

}  // namespace
