#include "host/delivery/spool_entry.h"

#include <gtest/gtest.h>

#include "tests/unit/host/core/cpu_time.h"

namespace {

using host::delivery::parseSpoolFile;
using host::delivery::SpoolEntry;
using host::delivery::writeSpoolHead;

SpoolEntry sample() {
  SpoolEntry entry;
  entry.kind = "postpone";
  entry.messageId = "0123456789abcdef";
  entry.queuedAt = 1'700'000'000;
  entry.messageBytes = 4;
  entry.window = {8, 30, 23, 59};
  entry.envelope.sender = "a@example.org";
  entry.envelope.recipients = {"b@example.org", "c@example.org"};
  return entry;
}

bool parses(const std::string& file) {
  SpoolEntry entry;
  entry.kind = "before";
  std::string_view message = "before";
  const bool parsed = parseSpoolFile(file, entry, message);
  if (!parsed) {
    EXPECT_EQ(entry.kind, "before");
    EXPECT_EQ(message, "before");
  }
  return parsed;
}

TEST(SpoolHead, IsTheDocumentedText) {
  EXPECT_EQ(writeSpoolHead(sample()),
            "kavi-spool-1 {bytes=4,from=08:30,id=0123456789abcdef,kind=postpone,queued=1700000000,"
            "rcpt0=b@example.org,rcpt1=c@example.org,rcpts=2,sender=a@example.org,to=23:59}\n");
}

TEST(SpoolFile, ComesBackWhatWasWritten) {
  std::string every;
  for (int byte = 0; byte < 256; ++byte) every += static_cast<char>(byte);
  SpoolEntry noSender = sample();
  noSender.envelope.sender.reset();
  noSender.envelope.recipients.clear();
  SpoolEntry nullSender = sample();
  nullSender.envelope.sender = "";
  SpoolEntry hostile = sample();
  hostile.kind = hostile.messageId = every;
  hostile.envelope.sender = every;
  hostile.envelope.recipients = {every, "", every};
  SpoolEntry negative = sample();
  negative.queuedAt = -1;
  SpoolEntry held = sample();
  held.passes = 2;
  held.rule = 15;
  for (const SpoolEntry& entry : {sample(), noSender, nullSender, hostile, negative, held}) {
    SpoolEntry back;
    std::string_view message;
    const std::string whole = writeSpoolHead(entry) + std::string("a\n\0b", 4);
    ASSERT_TRUE(parseSpoolFile(whole, back, message));
    EXPECT_EQ(back, entry);
    EXPECT_EQ(message, std::string_view("a\n\0b", 4));
  }
}

TEST(SpoolFile, IsNoneWhenItWasCutOrGrew) {
  const std::string file = writeSpoolHead(sample()) + "body";
  ASSERT_TRUE(parses(file));
  for (std::size_t length = 0; length < file.size(); ++length) {
    EXPECT_FALSE(parses(file.substr(0, length))) << length;
  }
  EXPECT_FALSE(parses(file + "x"));
}

TEST(SpoolFile, IsNoneWithAnotherHead) {
  const std::string head = writeSpoolHead(sample());
  const auto with = [&head](const std::string& from, const std::string& to) {
    std::string changed = head;
    const std::size_t at = changed.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    changed.replace(at, from.size(), to);
    return changed + "body";
  };
  const struct {
    const char* from;
    const char* to;
  } table[] = {{"kavi-spool-1", "kavi-spool-2"},
               {"bytes=4", "bytes=5"},
               {"bytes=4", "bytes=-4"},
               {"bytes=4", "bytes=4x"},
               {"bytes=4", "bytes="},
               {"bytes=4,", ""},
               {"bytes=4", "bytes=99999999999999999999999"},
               {"from=08:30", "from=8:30"},
               {"from=08:30", "from=24:30"},
               {"from=08:30", "from=08:60"},
               {"from=08:30", "from=-1:30"},
               {"from=08:30", "from=08-30"},
               {"to=23:59", "to=23:5"},
               {"rcpts=2", "rcpts=1"},
               {"rcpts=2", "rcpts=3"},
               {"rcpts=2", "rcpts=18446744073709551615"},
               {"rcpts=2,", ""},
               {"rcpt1=", "rcpt2="},
               {"rcpt1=", "rcpt01="},
               {"queued=1700000000", "queued=soon"},
               {"kind=postpone", "sort=postpone"},
               {"}\n", "}\n\n"},
               {"}\n", "} \n"},
               {"}\n", "}{}\n"},
               {"{bytes", "{extra=1,bytes"},
               {" {", "{"},
               {"}\n", "}\r\n"}};
  for (const auto& row : table) {
    EXPECT_FALSE(parses(with(row.from, row.to))) << row.from << " " << row.to;
  }
}

TEST(SpoolFile, TakesTimeLinearInTheHead) {
  const auto timed = [](std::size_t recipients) {
    SpoolEntry entry = sample();
    entry.envelope.recipients.assign(recipients, "somebody@example.org");
    const std::string file = writeSpoolHead(entry) + "body";
    return testing_host::leastCpuSeconds([&file] { EXPECT_TRUE(parses(file)); });
  };
  EXPECT_LT(timed(80'000), 100 * timed(5'000));
}

}  // namespace
