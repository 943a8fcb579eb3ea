#include "host/core/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "tests/unit/host/core/child.h"

namespace {

using host::core::LogCapture;
using host::core::LogFormat;
using host::core::LogOptions;
using host::core::LogTarget;
using host::core::ProcessLog;

template <class Body>
std::vector<std::string> stderrLinesOf(Body body) {
  ::testing::internal::CaptureStderr();
  body();
  std::istringstream text(::testing::internal::GetCapturedStderr());
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

LogOptions level(int number) {
  LogOptions options;
  options.level = number;
  return options;
}

TEST(ProcessLog, WritesALineWithTimeProcessAndLevel) {
  const auto lines = stderrLinesOf([] {
    ProcessLog log(level(3));
    log.write(2, "%s=%d", "answer", 42);
  });
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_THAT(lines[0], ::testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]"
                                                "{2}\\.[0-9]{3}[+-][0-9]{2}:[0-9]{2} kavi\\[[0-9]+"
                                                "\\] L2 answer=42"));
}

TEST(ProcessLog, WritesNothingAboveItsLevel) {
  for (int most = 0; most <= 3; ++most) {
    const auto lines = stderrLinesOf([most] {
      ProcessLog log(level(most));
      EXPECT_EQ(log.getLevel(), most);
      for (int each = 1; each <= 3; ++each) log.write(each, "line");
    });
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(most));
  }
}

TEST(ProcessLog, KeepsALineOneLine) {
  const auto lines = stderrLinesOf([] {
    ProcessLog log(level(1));
    log.write(1, "a\r\nfaked line\x1B[31m\t\xFF %s", "件名");
  });
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_THAT(lines[0], ::testing::EndsWith("L1 a\\r\\nfaked line\\x1B[31m\\t\\xFF 件名"));
}

TEST(ProcessLog, WritesTextsOfAnyLengthWhole) {
  for (const std::size_t size : {2046u, 2047u, 2048u, 100'000u}) {
    const std::string text(size, 'x');
    const auto lines = stderrLinesOf([&] {
      ProcessLog log(level(1));
      log.write(1, "<%s>", text.c_str());
    });
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_THAT(lines[0], ::testing::EndsWith("L1 <" + text + ">"));
  }
}

TEST(ProcessLog, WritesJsonThatCarriesTheText) {
  LogOptions options = level(3);
  options.format = LogFormat::Json;
  options.name = "ka\"vi";
  const auto lines = stderrLinesOf([&] {
    ProcessLog log(options);
    log.write(3, "a \"b\" {} %% \\ \n 件名 \xFF");
  });
  ASSERT_EQ(lines.size(), 1u);
  const auto object = nlohmann::json::parse(lines[0]);
  EXPECT_EQ(object["text"], "a \"b\" {} % \\ \\n 件名 \\xFF");
  EXPECT_EQ(object["level"], 3);
  EXPECT_EQ(object["name"], "ka\"vi");
  EXPECT_EQ(object["pid"], ::getpid());
  EXPECT_TRUE(object["time"].is_string());
  EXPECT_EQ(object.size(), 5u);
}

TEST(ProcessLog, LeavesPercentAndBracesOfATextAlone) {
  const auto lines = stderrLinesOf([] {
    ProcessLog log(level(1));
    log.write(1, "%s", "100%s {} {0} %v %P");
  });
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_THAT(lines[0], ::testing::EndsWith("L1 100%s {} {0} %v %P"));
}

TEST(ProcessLog, KeepsLinesWholeFromManyThreads) {
  constexpr int kThreads = 8;
  constexpr int kLines = 500;
  const auto lines = stderrLinesOf([] {
    ProcessLog log(level(1));
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number) {
      threads.emplace_back([&log, number] {
        for (int line = 0; line < kLines; ++line) log.write(1, "t%d l%d end", number, line);
      });
    }
    for (std::thread& thread : threads) thread.join();
  });
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(kThreads * kLines));
  EXPECT_THAT(lines, ::testing::Each(
                         ::testing::MatchesRegex("[^ ]+ kavi\\[[0-9]+\\] L1 t[0-9] l[0-9]+ end")));
}

TEST(ProcessLog, ReachesSyslog) {
  const int result = testing_host::inChild([] {
    if (!testing_host::mountSmallDisk("/dev", "size=64k")) return testing_host::kNotPermitted;
    const int daemon = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address{AF_UNIX, "/dev/log"};
    if (::bind(daemon, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return 1;
    LogOptions options = level(3);
    options.target = LogTarget::Syslog;
    ProcessLog log(options);
    const char* priorities[] = {"<19>", "<22>", "<23>"};  // mail.err, mail.info, mail.debug
    for (int each = 1; each <= 3; ++each) {
      log.write(each, "line\n%d", each);
      std::array<char, 512> got{};
      if (::recv(daemon, got.data(), got.size() - 1, MSG_DONTWAIT) <= 0) return 2;
      const std::string text = got.data();
      if (text.rfind(priorities[each - 1], 0) != 0) return 3;
      const std::string end = "]: L" + std::to_string(each) + " line\\n" + std::to_string(each);
      if (text.find(" kavi[") == std::string::npos) return 4;
      if (text.size() < end.size() || text.substr(text.size() - end.size()) != end) return 5;
    }
    return 0;
  });
  if (result == testing_host::kNotPermitted) GTEST_SKIP() << "mounting is not permitted here";
  EXPECT_EQ(result, 0);
}

TEST(LogCapture, CollectsWhatThisThreadWrites) {
  const auto lines = stderrLinesOf([] {
    ProcessLog log(level(1));
    LogCapture capture(log);
    EXPECT_EQ(log.getLevel(), 3);
    log.write(1, "failure\n");
    log.write(3, "detail %d", 7);
    std::thread([&log] {
      EXPECT_EQ(log.getLevel(), 1);
      log.write(1, "elsewhere");
      log.write(3, "not written");
    }).join();
    ASSERT_EQ(capture.lines().size(), 2u);
    EXPECT_EQ(capture.lines()[0].level, 1);
    EXPECT_EQ(capture.lines()[0].text, "failure\\n");
    EXPECT_EQ(capture.lines()[1].level, 3);
    EXPECT_EQ(capture.lines()[1].text, "detail 7");
  });
  ASSERT_EQ(lines.size(), 2u);  // the target keeps to the log's own level
  EXPECT_THAT(lines[0], ::testing::EndsWith("L1 failure\\n"));
  EXPECT_THAT(lines[1], ::testing::EndsWith("L1 elsewhere"));
}

TEST(LogCapture, NestsAndEnds) {
  stderrLinesOf([] {
    ProcessLog log(level(0));
    ProcessLog other(level(0));
    LogCapture outer(log, 2);
    {
      LogCapture inner(log, 3);
      LogCapture foreign(other, 3);
      log.write(2, "two");
      log.write(3, "three");
      EXPECT_EQ(inner.lines().size(), 2u);
      EXPECT_TRUE(foreign.lines().empty());
    }
    EXPECT_EQ(log.getLevel(), 2);
    EXPECT_EQ(outer.lines().size(), 1u);
    EXPECT_EQ(other.getLevel(), 0);
  });
}

}  // namespace
