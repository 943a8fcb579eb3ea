// What the tests of tokens need.
#pragma once

#include <string>

#include "tests/unit/library/library_test.h"

/// The library with its token maps built.
class TokenTest : public LibraryTest {
 protected:
  TokenTest() {
    ActionUtils::_build_token_string_table();
    log.takeLines();
  }

  std::string replaced(const std::string& text) {
    std::string result = "old";
    EXPECT_TRUE(ActionUtils::replaceTokens(tokens, text, msg, result));
    return result;
  }
  const char* valueOf(const char* text) { return ActionUtils::getTokenValue(tokens, text, msg); }
  /// Starts the library settings anew.
  void configure(fakes::Settings& settings) {
    ActionUtils::init(settings, log);
    log.takeLines();
  }
  /// The settings under which a date is computed each time, in Japanese.
  void useKaviLocaleForTime() {
    fakes::Settings settings;
    settings.set("general", "locale", "ja");
    settings.set("general", "useKaviLocaleForNotificationTime", "yes");
    configure(settings);
  }

  fakes::Message msg;
};
