#include "gateway/milter/progress.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

namespace gateway::milter {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(ProgressTest, GivesSignsWhileAMessageIsAtWork) {
  Progress progress(milliseconds(4));
  std::promise<void> third;
  std::atomic<int> signs = 0;
  {
    const Progress::Watch watch(progress, [&] {
      if (++signs == 3) third.set_value();
    });
    EXPECT_EQ(third.get_future().wait_for(seconds(30)), std::future_status::ready);
  }
  const int last = signs;
  // Another one's signs show that the thread came by without this one.
  std::promise<void> other;
  std::atomic<int> others = 0;
  const Progress::Watch watch(progress, [&] {
    if (++others == 2) other.set_value();
  });
  EXPECT_EQ(other.get_future().wait_for(seconds(30)), std::future_status::ready);
  EXPECT_EQ(signs, last);
}

TEST(ProgressTest, ManyMessagesComeAndGo) {
  Progress progress(milliseconds(1));
  std::atomic<int> signs = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      for (int j = 0; j < 500; ++j) {
        const Progress::Watch watch(progress, [&] { ++signs; });
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const int last = signs;
  {
    const Progress::Watch watch(progress, [] {});
  }
  EXPECT_EQ(signs, last) << "a sign for a message that was gone";
}

}  // namespace
}  // namespace gateway::milter
