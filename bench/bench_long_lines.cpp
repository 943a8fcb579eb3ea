// The division of long lines beside its literal steps, in the same run: one line of 200 kB to be
// written in iso-2022-jp, and in two other charsets for comparison.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "library/actions/modification/long_lines.h"
#include "tests/unit/library/actions/modification/support/long_lines_oracle.h"

namespace {

constexpr std::size_t kSize = 200'000;
constexpr int kLimit = 990;
constexpr double kBound = 20;  // for iso-2022-jp

struct Sample {
  const char* charset;
  const char* unit;
};

constexpr Sample kSamples[] = {
    {"iso-2022-jp", "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\xE3\x81\xAE\xE6\x96\x87\xE3\x80\x82"},
    {"utf-8", "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\xE3\x81\xAE\xE6\x96\x87\xE3\x80\x82"},
    {"us-ascii", "This stamp is one line. "},
};

std::string textOf(const Sample& sample) {
  std::string text;
  while (text.size() < kSize) {
    text += sample.unit;
  }
  return text;
}

void require(bool condition, const char* charset) {
  if (!condition) {
    std::fprintf(stderr, "the two differ in %s\n", charset);
    std::abort();
  }
}

std::map<std::string, double> nanoseconds;

void keepTime(const benchmark::State& state, const std::string& name, double seconds) {
  nanoseconds[name] = seconds * 1e9 / static_cast<double>(state.iterations());
}

double now() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void divide(benchmark::State& state, const Sample& sample) {
  const std::string text = textOf(sample);
  const double start = now();
  for (auto _ : state) {
    std::string divided = text;
    benchmark::DoNotOptimize(library::divideLongLines(divided, sample.charset, kLimit));
  }
  keepTime(state, std::string("divide ") + sample.charset, now() - start);
}

void literalSteps(benchmark::State& state, const Sample& sample) {
  const std::string text = textOf(sample);
  const double start = now();
  for (auto _ : state) {
    std::string divided = text;
    std::vector<std::string> log;
    benchmark::DoNotOptimize(oracle::modifyIfHasLimitLine(divided, sample.charset, kLimit, log));
  }
  keepTime(state, std::string("steps ") + sample.charset, now() - start);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  for (const Sample& sample : kSamples) {
    std::string divided = textOf(sample);
    std::string expected = divided;
    std::vector<std::string> log;
    require(library::divideLongLines(divided, sample.charset, kLimit) &&
                oracle::modifyIfHasLimitLine(expected, sample.charset, kLimit, log) &&
                divided == expected,
            sample.charset);
    const std::string charset = sample.charset;
    benchmark::RegisterBenchmark(("divide/" + charset).c_str(), divide, sample)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("steps/" + charset).c_str(), literalSteps, sample)
        ->Unit(benchmark::kMillisecond);
  }
  benchmark::RunSpecifiedBenchmarks();
  bool fastEnough = true;
  for (const Sample& sample : kSamples) {
    const std::string charset = sample.charset;
    const double ours = nanoseconds["divide " + charset];
    const double steps = nanoseconds["steps " + charset];
    if (ours > 0 && steps > 0) {
      const bool bound = charset == "iso-2022-jp";
      std::printf("%-12s %.1f times as fast as the literal steps%s\n", charset.c_str(),
                  steps / ours, bound ? " (at least 20)" : "");
      fastEnough = fastEnough && (!bound || steps / ours >= kBound);
    }
  }
  return fastEnough ? 0 : 1;
}
