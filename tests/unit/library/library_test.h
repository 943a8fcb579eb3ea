// What every test of the library needs.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "library/framework/kavi_action.h"
#include "library/tokens/action_utils.h"
#include "tests/fakes/adapter.h"
#include "tests/fakes/capturing_log.h"
#include "tests/fakes/message.h"
#include "tests/fakes/resources.h"
#include "tests/fakes/settings.h"

/// The library started on empty settings, with a log that a test reads line by line: lines of
/// level 1 that a test does not take make it fail.
class LibraryTest : public testing::Test {
 protected:
  LibraryTest() {
    fakes::Resources::instance().clear();
    start(log);
    log.takeLines();
  }
  ~LibraryTest() override {
    static fakes::CapturingLog nowhere(0);
    start(nowhere);
  }

  bool take(KaviAction& action, OvMsgMailMessage* msg, bool& flag) {
    return action.takeAction(msg, nullptr, flag, tokens, adapter, namedObjects);
  }

  fakes::CapturingLog log{3};
  fakes::Adapter adapter;
  Kavi::TokenMap<Kavi::ScanToken> tokens;
  NamedObjMgrForScanner namedObjects;

 private:
  static void start(fakes::CapturingLog& to) {
    fakes::Settings none;
    ActionUtils::init(none, to);
  }
};

using Ids = std::vector<unsigned int>;
using Texts = std::vector<std::string>;
