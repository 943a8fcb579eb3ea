#include "gateway/policy/token_check.h"

#include <gtest/gtest.h>

#include <string>

namespace gateway::policy {
namespace {

struct Text {
  const char* text;
  const char* doubtful;  ///< "word>meant;" for each
};

class TokenCheck : public testing::TestWithParam<Text> {};

TEST_P(TokenCheck, NamesWhatLooksMistyped) {
  std::string found;
  for (const DoubtfulToken& token : doubtfulTokens(GetParam().text)) {
    found += token.word + ">" + token.meant + ";";
  }
  EXPECT_EQ(found, GetParam().doubtful);
}

INSTANTIATE_TEST_SUITE_P(
    All, TokenCheck,
    testing::Values(Text{"", ""}, Text{"plain", ""}, Text{"%SENDER% %RCPTS%", ""},
                    Text{"%SENDR%", "%SENDR%>%SENDER%;"}, Text{"%sender%", "%sender%>%SENDER%;"},
                    Text{"%FILE_NAME%", "%FILE_NAME%>%FILENAME%;"},
                    Text{"%SENDR% and %SENDR%", "%SENDR%>%SENDER%;"}, Text{"50%% off", ""},
                    Text{"100% sure %SENDER%", ""}, Text{"100% sure %SENDR%", "%SENDR%>%SENDER%;"},
                    Text{"%DATE&TIM%", "%DATE&TIM%>%DATE&TIME%;"}, Text{"%", ""},
                    Text{"%SENDR", ""}, Text{"%UNRELATEDWORD%", ""}, Text{"%%SENDR%", ""},
                    Text{"%SENDER%SENDR%", ""}));

TEST(TokenCheckOfManySigns, IsLinear) {
  EXPECT_TRUE(doubtfulTokens(std::string(1 << 20, '%')).empty());
  std::string text;
  for (int i = 0; i < 100'000; ++i) text += "%no token here";
  EXPECT_TRUE(doubtfulTokens(text).empty());
}

}  // namespace
}  // namespace gateway::policy
