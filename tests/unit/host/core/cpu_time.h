// How long a piece of work keeps the processor.
#pragma once

#include <algorithm>
#include <ctime>
#include <limits>

namespace testing_host {

/// The least processor time of this thread, in seconds, that \p work took in three runs. Unlike
/// the clock on the wall it does not count the time that other programs had.
template <class Work>
double leastCpuSeconds(Work work) {
  constexpr int kRuns = 3;
  constexpr double kNanosecond = 1e-9;
  const auto now = [] {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * kNanosecond;
  };
  double least = std::numeric_limits<double>::max();
  for (int run = 0; run < kRuns; ++run) {
    const double start = now();
    work();
    least = std::min(least, now() - start);
  }
  return least;
}

}  // namespace testing_host
