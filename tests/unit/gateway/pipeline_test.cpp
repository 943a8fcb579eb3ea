#include "gateway/cli/pipeline.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/unit/gateway/policy_texts.h"

namespace gateway::cli {
namespace {

using host::message::Buffer;

class PipelineTest : public testing::TestWithParam<unsigned int> {
 protected:
  PipelineTest() {
    settings_.policy = policy::snapshotOf("rules: []\n");
    file_.path = "box";
    file_.outputName = "box";
  }

  InputMessage message(std::size_t number) {
    InputMessage input;
    input.file = &file_;
    input.number = number;
    // Of very different sizes, so that threads finish out of order.
    input.bytes = Buffer::adopt("A: b\n\n" + std::string(number % 7 == 0 ? 400000 : 10, 'x'));
    return input;
  }

  JobSettings settings_;
  InputFile file_;
};

TEST_P(PipelineTest, KeepsTheOrderOfTheInputs) {
  constexpr std::size_t kCount = 500;
  std::vector<std::size_t> seen;
  runMessages(
      GetParam(), settings_,
      [this](const std::function<bool(InputMessage)>& take) {
        for (std::size_t i = 1; i <= kCount; ++i) ASSERT_TRUE(take(message(i)));
      },
      [&seen](const MessageResult& result) {
        EXPECT_TRUE(result.ran);
        seen.push_back(result.number);
      });
  ASSERT_EQ(seen.size(), kCount);
  for (std::size_t i = 0; i < kCount; ++i) EXPECT_EQ(seen[i], i + 1);
}

TEST_P(PipelineTest, EndsWithoutInputs) {
  int results = 0;
  runMessages(
      GetParam(), settings_, [](const std::function<bool(InputMessage)>&) {},
      [&results](const MessageResult&) { ++results; });
  EXPECT_EQ(results, 0);
}

TEST_P(PipelineTest, PassesOnWhatTheProducerThrows) {
  EXPECT_THROW(runMessages(
                   GetParam(), settings_,
                   [this](const std::function<bool(InputMessage)>& take) {
                     take(message(1));
                     throw std::runtime_error("gone");
                   },
                   [](const MessageResult&) {}),
               std::runtime_error);
}

TEST_P(PipelineTest, PassesOnWhatTheConsumerThrows) {
  std::atomic<bool> refused = false;
  EXPECT_THROW(runMessages(
                   GetParam(), settings_,
                   [&](const std::function<bool(InputMessage)>& take) {
                     std::size_t i = 0;
                     while (!refused) refused = !take(message(++i));
                   },
                   [](const MessageResult&) { throw std::runtime_error("full"); }),
               std::runtime_error);
}

INSTANTIATE_TEST_SUITE_P(Threads, PipelineTest, testing::Values(1u, 2u, 8u));

}  // namespace
}  // namespace gateway::cli
