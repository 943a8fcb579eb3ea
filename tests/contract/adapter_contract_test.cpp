// What every delivery adapter promises the actions.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>

#include "tests/contract/subjects.h"

namespace {

using contract::AdapterBench;

class RenderedText final : public OvMsgSink {
 public:
  bool write(const char* data, std::size_t size) override {
    text_.append(data, size);
    return true;
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

std::string rendered(const OvMsgMailMessage& message) {
  RenderedText sink;
  message.render(sink);
  return sink.text();
}

struct Operation {
  const char* name;
  std::function<int(AdapterBench&, unsigned int&, OvMsgMailMessage*)> run;
};

const Operation kOperations[] = {
    {"Delete",
     [](auto& bench, auto& error, auto* msg) { return bench.adapter().deleteMessage(error, msg); }},
    {"Postpone",
     [](auto& bench, auto& error, auto* msg) {
       return bench.adapter().postponeMessage(error, msg, 8, 30, 23, 59);
     }},
    {"Quarantine",
     [](auto& bench, auto& error, auto* msg) {
       char path[kQuarantinePathSize] = {};
       return bench.adapter().quarantineMessage(error, msg, "", bench.folder().c_str(), path);
     }},
    {"Archive",
     [](auto& bench, auto& error, auto* msg) {
       const char area[kArchiveAreaNameSize] = "sales";
       return bench.adapter().archiveMessage(error, msg, "", bench.folder().c_str(), area);
     }},
};

class AdapterContract : public ::testing::TestWithParam<Operation> {
 protected:
  std::unique_ptr<AdapterBench> bench_ = contract::makeAdapterBench();
};

TEST_P(AdapterContract, AnswersZeroAndNoErrorWhenItDidIt) {
  unsigned int error = 0;
  EXPECT_EQ(GetParam().run(*bench_, error, &bench_->message()), 0);
  EXPECT_EQ(error, 0u);
}

TEST_P(AdapterContract, AnswersAnErrorInBothWaysWhenItCouldNot) {
  bench_->breakDown();
  unsigned int error = 0;
  EXPECT_NE(GetParam().run(*bench_, error, &bench_->message()), 0);
  EXPECT_NE(error, 0u);
}

TEST_P(AdapterContract, LeavesTheMessageAsItWas) {
  const std::string before = rendered(bench_->message());
  unsigned int error = 0;
  EXPECT_EQ(GetParam().run(*bench_, error, &bench_->message()), 0);
  EXPECT_EQ(rendered(bench_->message()), before);
}

TEST_P(AdapterContract, CanDoItAgainForTheSameMessage) {
  for (int time = 0; time < 3; ++time) {
    unsigned int error = 0;
    EXPECT_EQ(GetParam().run(*bench_, error, &bench_->message()), 0) << time;
  }
}

INSTANTIATE_TEST_SUITE_P(Every, AdapterContract, ::testing::ValuesIn(kOperations),
                         [](const auto& operation) { return std::string(operation.param.name); });

TEST(AdapterContractPath, ReportsWhereTheQuarantinedCopyLies) {
  const auto bench = contract::makeAdapterBench();
  char path[kQuarantinePathSize] = {};
  unsigned int error = 0;
  ASSERT_EQ(bench->adapter().quarantineMessage(error, &bench->message(), "",
                                               bench->folder().c_str(), path),
            0);
  EXPECT_NE(std::memchr(path, '\0', sizeof path), nullptr);
  EXPECT_TRUE(std::string(path).starts_with(bench->folder() + "/")) << path;
}

TEST(AdapterContractPath, ReportsNoPathWhenNothingWasStored) {
  const auto bench = contract::makeAdapterBench();
  bench->breakDown();
  char path[kQuarantinePathSize] = {};
  unsigned int error = 0;
  EXPECT_NE(bench->adapter().quarantineMessage(error, &bench->message(), "",
                                               bench->folder().c_str(), path),
            0);
  EXPECT_STREQ(path, "");
}

}  // namespace
