// The memory that a large message takes, in a process of its own: nothing else may run here.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "host/message/message.h"
#include "library/platform/msgu.h"
#include "tests/unit/host/message/support/torture.h"

namespace message_test {
namespace {

using host::message::Buffer;
using host::message::Message;

std::size_t peakBytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stoul(line.substr(6)) * 1024;
  }
  return 0;
}

class FileSink final : public OvMsgSink {
 public:
  explicit FileSink(const std::string& path) : file_(path, std::ios::binary) {}
  bool write(const char* data, std::size_t size) override {
    return static_cast<bool>(file_.write(data, static_cast<std::streamsize>(size)));
  }

 private:
  std::ofstream file_;
};

TEST(Memory, OfALargeMessageIsAtMostTwoAndAHalfTimesItsSize) {
  const std::string path = ::testing::TempDir() + "kavi_message_memory_test.eml";
  constexpr std::size_t kSize = 50'000'000;
  {
    // Written line by line: the peak of this process is to be the message's.
    std::ofstream file(path, std::ios::binary);
    file << "Subject: large\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n"
            "Content-Transfer-Encoding: base64\r\n\r\n";
    const std::string line = std::string(76, 'A') + "\r\n";
    for (std::size_t size = 0; size < kSize; size += line.size()) file << line;
    file << "--b--\r\n";
  }
  const std::size_t before = peakBytes();
  ASSERT_GT(before, 0u);
  std::string error;
  const auto message = Message::parse(Buffer::readFile(path, error));
  ASSERT_TRUE(msgu::setHeader(message->firstEntity(), "X-Flag", "yes", nullptr));
  EXPECT_GT(message->firstEntity()->nextEntity()->decodedSize(), kSize / 2);
  FileSink sink(path);
  EXPECT_EQ(message->render(sink), 0);
  const double times = static_cast<double>(peakBytes() - before) / kSize;
  std::remove(path.c_str());
  std::printf("peak: %.2f times the message\n", times);
  EXPECT_LE(times, 2.5);
}

}  // namespace
}  // namespace message_test
