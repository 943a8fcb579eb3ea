// What every delivery adapter promises the actions.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "tests/contract/subjects.h"

namespace {

using contract::AdapterBench;
using contract::AdapterKind;

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

void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }

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
    {"Handoff",
     [](auto& bench, auto& error, auto* msg) {
       return bench.adapter().handoffMessage(error, msg, "192.0.2.1", 25);
     }},
    {"Resend", [](auto& bench, auto& error,
                  auto* msg) { return bench.adapter().resendMessage(error, msg, 1); }},
    {"Deliver", [](auto& bench, auto& error,
                   auto* msg) { return bench.adapter().deliverMessage(error, msg); }},
};

using Subject = std::tuple<AdapterKind, Operation>;

class AdapterContract : public ::testing::TestWithParam<Subject> {
 protected:
  bool offered() const { return bench_->offers(std::get<Operation>(GetParam()).name); }
  int run(unsigned int& error, OvMsgMailMessage* msg) {
    return std::get<Operation>(GetParam()).run(*bench_, error, msg);
  }

  std::unique_ptr<AdapterBench> bench_ = std::get<AdapterKind>(GetParam()).makeBench();
};

TEST_P(AdapterContract, AnswersZeroAndNoErrorExactlyWhenItDidIt) {
  unsigned int error = 0;
  EXPECT_EQ(run(error, &bench_->message()) == 0, offered());
  EXPECT_EQ(error == 0, offered());
}

TEST_P(AdapterContract, AnswersAnErrorInBothWaysWhenItCouldNot) {
  bench_->breakDown();
  unsigned int error = 0;
  EXPECT_NE(run(error, &bench_->message()), 0);
  EXPECT_NE(error, 0u);
}

TEST_P(AdapterContract, AnswersAnErrorInBothWaysWithoutAMessage) {
  unsigned int error = 0;
  EXPECT_NE(run(error, nullptr), 0);
  EXPECT_NE(error, 0u);
}

TEST_P(AdapterContract, LeavesTheMessageAsItWas) {
  const std::string before = rendered(bench_->message());
  const std::string envelope = bench_->envelope();
  unsigned int error = 0;
  run(error, &bench_->message());
  EXPECT_EQ(rendered(bench_->message()), before);
  EXPECT_EQ(bench_->envelope(), envelope);
}

TEST_P(AdapterContract, CanDoItAgainForTheSameMessage) {
  for (int time = 0; time < 3; ++time) {
    unsigned int error = 0;
    EXPECT_EQ(run(error, &bench_->message()) == 0, offered()) << time;
  }
}

std::vector<Operation> operations() { return {std::begin(kOperations), std::end(kOperations)}; }

INSTANTIATE_TEST_SUITE_P(Every, AdapterContract,
                         ::testing::Combine(::testing::ValuesIn(contract::adapterKinds()),
                                            ::testing::ValuesIn(operations())),
                         [](const auto& subject) {
                           return std::string(std::get<AdapterKind>(subject.param).name) +
                                  std::get<Operation>(subject.param).name;
                         });

class AdapterContractPath : public ::testing::TestWithParam<AdapterKind> {
 protected:
  int quarantine(const std::string& folder, OvMsgMailMessage* msg) {
    unsigned int error = 0;
    const int result = bench_->adapter().quarantineMessage(error, msg, "", folder.c_str(), path_);
    EXPECT_EQ(result == 0, error == 0);
    return result;
  }
  bool terminated() const { return std::memchr(path_, '\0', sizeof path_) != nullptr; }

  std::unique_ptr<AdapterBench> bench_ = GetParam().makeBench();
  char path_[kQuarantinePathSize] = {};
};

TEST_P(AdapterContractPath, ReportsWhereTheQuarantinedCopyLies) {
  std::memset(path_, 'x', sizeof path_);
  ASSERT_EQ(quarantine(bench_->folder(), &bench_->message()), 0);
  ASSERT_TRUE(terminated());
  EXPECT_TRUE(std::string(path_).starts_with(bench_->folder() + "/")) << path_;
}

TEST_P(AdapterContractPath, ReportsNoPathWhenNothingWasStored) {
  bench_->breakDown();
  EXPECT_NE(quarantine(bench_->folder(), &bench_->message()), 0);
  EXPECT_STREQ(path_, "");
}

TEST_P(AdapterContractPath, StaysWithinItsBufferWhateverTheFolderIsCalled) {
  for (const std::size_t length : {500u, 518u, 519u, 520u, 521u, 5000u}) {
    std::memset(path_, 0, sizeof path_);
    quarantine("/" + std::string(length - 1, 'd'), &bench_->message());
    EXPECT_TRUE(terminated()) << length;
  }
}

TEST_P(AdapterContractPath, TakesAnAreaNameOfFullLength) {
  char area[kArchiveAreaNameSize] = {};
  std::memset(area, 'a', sizeof area - 1);
  unsigned int error = 0;
  const int result = bench_->adapter().archiveMessage(error, &bench_->message(), "",
                                                      bench_->folder().c_str(), area);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(error, 0u);
}

INSTANTIATE_TEST_SUITE_P(Every, AdapterContractPath, ::testing::ValuesIn(contract::adapterKinds()),
                         [](const auto& kind) { return std::string(kind.param.name); });

}  // namespace

bool contract::AdapterBench::offers(const std::string& /*operation*/) const { return true; }

std::string contract::AdapterBench::envelope() const { return {}; }
