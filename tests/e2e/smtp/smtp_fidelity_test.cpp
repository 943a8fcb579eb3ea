// What arrives differs from what was sent by SMTP's own rules only.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <random>

#include "host/delivery/line_ends.h"
#include "tests/e2e/smtp/smtp_test.h"

namespace {

using host::delivery::CrLfEncoder;
using host::delivery::SmtpClient;
using host::delivery::SmtpOutcome;
using testing_host::asReceived;
using testing_host::envelopeTo;
using testing_host::sendBytes;
using testing_host::SmtpSink;
using testing_host::withCrLf;

const host::delivery::SmtpTimeouts kLong{5000, 30'000, 120'000};

struct Torture {
  const char* name;
  std::string bytes;
};

std::string repeated(std::string_view text, std::size_t count) {
  std::string out;
  out.reserve(text.size() * count);
  for (std::size_t index = 0; index < count; ++index) out += text;
  return out;
}

// Every byte value and all that means something to SMTP, at random.
std::string randomBytes(unsigned int seed, std::size_t size) {
  std::mt19937 random(seed);
  const char special[] = {'\r', '\n', '.', '\0', ' ', 'a'};
  std::string out;
  while (out.size() < size) {
    const auto draw = static_cast<unsigned int>(random());
    out += draw % 3 != 0 ? special[draw / 3 % sizeof special] : static_cast<char>(draw >> 8);
  }
  return out;
}

std::vector<Torture> tortures() {
  std::vector<Torture> all{
      {"Empty", ""},
      {"LineBreakOnly", "\r\n"},
      {"LfOnly", "\n"},
      {"CrOnly", "\r"},
      {"NoLastLineBreak", "Subject: x\r\n\r\nbody"},
      {"Lf", "Subject: x\n\nbody\n"},
      {"BareCr", "Subject: x\r\rbody\r"},
      {"Mixed", "Subject: x\r\n\nbody\rmore\n\r\n\r\rend"},
      {"CrCrLf", "Subject: x\r\r\n\r\r\nbody\r\r\n"},
      {"EndsInCrs", "Subject: x\r\n\r\nbody\r\r\r"},
      {"LfCr", "a\n\rb\n\r"},
      {"EndsInCr", "Subject: x\r\n\r\nbody\r"},
      {"Dot", "."},
      {"DotLine", ".\r\n"},
      {"DotFirst", ".first\r\n"},
      {"Dots", "..\r\n...\r\n.\r\n\r\n.\r\n"},
      {"DotEnd", "Subject: x\r\n\r\nbody\r\n."},
      {"LfDotLf", "Subject: x\n\nbody\n.\nQUIT\n"},
      {"CrDotCr", "Subject: x\r\rbody\r.\rQUIT\r"},
      {"LfDotCrLf", "Subject: x\r\n\r\nbody\n.\r\nMAIL FROM:<evil@example.net>\r\n"},
      {"Nul", std::string("Subject: x\r\n\r\na\0b\r\n", 19)},
      {"EightBit", "Subject: \xE9\r\n\r\n\xFF\xFE\x80\r\n"},
      {"LongLine", "Subject: x\r\n\r\n" + std::string(300'000, 'x') + "\r\n"},
      {"ManyCrs", std::string(300'000, '\r')},
      {"ManyLfs", std::string(300'000, '\n')},
      {"ManyDots", repeated(".\r\n", 100'000)},
      {"ManyLfDots", repeated(".\n", 100'000)},
      {"Large", "Subject: x\r\n\r\n" + repeated("a line of a large body\r\n", 500'000)},
  };
  for (unsigned int seed = 1; seed <= 5; ++seed) {
    all.push_back({"Random", randomBytes(seed, seed * 50'000)});
  }
  // Around the size of the buffer, with a line break across its end.
  for (std::size_t size = 65'530; size <= 65'540; ++size) {
    all.push_back({"Edge", std::string(size, 'x') + "\n.\r\ny\r"});
  }
  return all;
}

TEST(SmtpFidelity, TortureArrivesWhole) {
  SmtpSink sink;
  SmtpClient client("gateway.example.org");
  std::size_t count = 0;
  for (const Torture& torture : tortures()) {
    for (const std::size_t piece : {std::size_t{1} << 30, std::size_t{65'537}, std::size_t{7}}) {
      const SmtpOutcome outcome = sendBytes(client, sink.destination(), envelopeTo({"a@b.test"}),
                                            torture.bytes, piece, kLong);
      ASSERT_TRUE(outcome.isSent()) << torture.name << ": " << outcome.text();
      ++count;
      EXPECT_TRUE(sink.lastMessage() == asReceived(torture.bytes))
          << torture.name << " in " << piece;
      if (torture.bytes.size() > 1'000'000) break;  // once is enough
    }
  }
  EXPECT_EQ(sink.connections(), 1u);
  EXPECT_EQ(sink.messages().size(), count);
  for (const auto& event : sink.events()) EXPECT_NE(event.kind, "bare-lf") << event.text;
}

TEST(SmtpFidelity, RealMailArrivesWhole) {
  const char* folder = std::getenv("KAVI_MAIL_DIR");
  if (folder == nullptr) GTEST_SKIP() << "KAVI_MAIL_DIR names no folder with messages";
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file() || entry.path().extension() == ".tsv") continue;
    const std::string bytes = testing_host::contentOf(entry.path());
    static SmtpClient client("gateway.example.org");
    static SmtpSink sink(R"({"offers": ["8BITMIME", "DSN", "SIZE 0"]})");
    const SmtpOutcome outcome =
        sendBytes(client, sink.destination(), envelopeTo({"a@b.test"}), bytes, 4096, kLong);
    ASSERT_TRUE(outcome.isSent()) << entry.path() << ": " << outcome.text();
    EXPECT_TRUE(sink.lastMessage() == asReceived(bytes)) << entry.path();
    ++files;
  }
  EXPECT_GT(files, 0u);
  RecordProperty("files", static_cast<int>(files));
}

TEST(CrLfEncoder, GivesTheSameHoweverTheBytesAreDivided) {
  std::mt19937 random(7);
  for (unsigned int round = 0; round < 300; ++round) {
    const std::string bytes = randomBytes(round, 200);
    CrLfEncoder encoder;
    std::string out;
    std::string_view rest = bytes;
    while (!rest.empty()) {
      std::string_view piece = rest.substr(0, 1 + random() % 9);
      rest.remove_prefix(piece.size());
      while (!piece.empty()) {
        char room[16];
        const std::size_t written = encoder.encode(piece, room, 2 + random() % 15);
        ASSERT_LE(written, sizeof room);
        out.append(room, written);
      }
    }
    while (!encoder.isFinished()) {
      char room[16];
      out.append(room, encoder.finish(room, 2 + random() % 15));
    }
    ASSERT_EQ(out, withCrLf(bytes)) << "round " << round;
  }
}

TEST(CrLfEncoder, TakesCrsBeforeAnLfForOneLineBreak) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"Subject: x\r\r\nTo: y\r\r\r\n\r\r\nbody\r\r\n", "Subject: x\r\nTo: y\r\n\r\nbody\r\n"},
      {"a\r\rb\r", "a\r\n\r\nb\r\n"},
      {"\n\r\n\n\r", "\r\n\r\n\r\n\r\n"}};
  for (const auto& [bytes, expected] : cases) {
    CrLfEncoder encoder;
    char room[100];
    std::string_view rest = bytes;
    std::size_t written = encoder.encode(rest, room, sizeof room);
    written += encoder.finish(room + written, sizeof room - written);
    EXPECT_EQ(std::string_view(room, written), expected);
    EXPECT_TRUE(rest.empty());
    EXPECT_TRUE(encoder.isFinished());
  }
}

}  // namespace
