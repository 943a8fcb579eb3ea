// Traps as a real receiver gets them.
#include "library/platform/trap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "host/trap/trap_error.h"
#include "host/trap/trap_recorder.h"
#include "host/trap/trap_text.h"
#include "tests/e2e/trap/snmp_trapd.h"

namespace {

using host::trap::TrapError;
using testing::HasSubstr;
using testing_host::ReceivedTrap;
using testing_host::SnmpTrapd;

constexpr char kOid[] = "1.3.6.1.4.1.99999.141";
constexpr auto kV1 = SNMPTrapVersion::V1;
constexpr auto kV2c = SNMPTrapVersion::V2c;

struct Wanted {
  SNMPTrapVersion version = kV1;
  std::string community = {};
  unsigned long type = 27;
  std::string text = "rule executables matched";
};

int send(const Wanted& wanted, const std::string& server, const char* oid = kOid) {
  KaviTrapInfo trap(server, wanted.version, oid, wanted.community, wanted.type);
  trap.setTrapVarValue(wanted.text);
  return SendKaviTrap(trap);
}

TrapError code(int result) { return static_cast<TrapError>(result); }

class TrapTest : public testing::Test {
 protected:
  /// The trap that came in for \p wanted.
  ReceivedTrap received(const Wanted& wanted) {
    EXPECT_EQ(send(wanted, receiver.server()), 0);
    const auto traps = receiver.take(1);
    EXPECT_EQ(traps.size(), 1u) << "none came in";
    return traps.empty() ? ReceivedTrap() : traps.front();
  }
  SnmpTrapd receiver;
};

TEST_F(TrapTest, OfTheFirstVersionArrives) {
  const ReceivedTrap trap = received({});
  EXPECT_EQ(trap.enterprise, std::string(".") + kOid);
  EXPECT_EQ(trap.generic, "6");
  EXPECT_EQ(trap.specific, "27");
  EXPECT_EQ(trap.security, "TRAP, SNMP v1, community public");
  EXPECT_THAT(trap.variables, HasSubstr(std::string(".") + kOid + ".1 = Hex-STRING: "));
  EXPECT_EQ(trap.text(), "rule executables matched");
}

TEST_F(TrapTest, OfTheSecondVersionArrives) {
  const ReceivedTrap trap = received({kV2c});
  EXPECT_EQ(trap.security, "TRAP2, SNMP v2c, community public");
  EXPECT_THAT(trap.variables, HasSubstr(".1.3.6.1.2.1.1.3.0 = Timeticks: "));
  EXPECT_THAT(trap.variables,
              HasSubstr(std::string(".1.3.6.1.6.3.1.1.4.1.0 = OID: .") + kOid + ".0.27\t"));
  EXPECT_THAT(trap.variables, HasSubstr(std::string(".") + kOid + ".1 = Hex-STRING: "));
  EXPECT_EQ(trap.text(), "rule executables matched");
}

TEST_F(TrapTest, CarriesItsCommunity) {
  EXPECT_EQ(received({kV1, "our own"}).security, "TRAP, SNMP v1, community our own");
  EXPECT_EQ(received({kV2c, "our own"}).security, "TRAP2, SNMP v2c, community our own");
}

TEST_F(TrapTest, CarriesItsTypeWhateverItIs) {
  for (const unsigned long type : {0ul, 1ul, 26ul, 2147483647ul}) {
    EXPECT_EQ(received({kV1, "", type}).specific, std::to_string(type));
    EXPECT_THAT(received({kV2c, "", type}).variables,
                HasSubstr(std::string(kOid) + ".0." + std::to_string(type) + "\t"));
  }
  EXPECT_THAT(received({kV2c, "", 4294967295ul}).variables,
              HasSubstr(std::string(kOid) + ".0.4294967295\t"));
}

TEST_F(TrapTest, CarriesItsTextByteForByte) {
  const std::string texts[] = {"x",
                               "",
                               "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E \xF0\x9F\x93\xA7",
                               "two\r\nlines",
                               std::string("a\0b", 3),
                               "\xFF\xFE not UTF-8",
                               std::string(1400, 'x')};
  for (const std::string& text : texts) {
    for (const auto version : {kV1, kV2c}) {
      EXPECT_EQ(received({version, "", 3, text}).text(), text);
    }
  }
}

TEST_F(TrapTest, CarriesTheBeginningOfALongText) {
  std::string text;
  while (text.size() < 70000) text += "\xE6\x97\xA5";
  for (const auto version : {kV1, kV2c}) {
    const std::string arrived = received({version, "", 3, text}).text();
    EXPECT_EQ(arrived, host::trap::fittingTrapText(text));
    EXPECT_LE(arrived.size(), 1400u);
  }
}

TEST_F(TrapTest, GoesToAName) {
  const std::string port = receiver.server().substr(receiver.server().find(':'));
  KaviTrapInfo trap("localhost" + port, kV1, kOid, "", 3);
  trap.setTrapVarValue("by name");
  // A machine may call itself by its IPv6 address first, where this receiver does not listen.
  EXPECT_EQ(SendKaviTrap(trap), 0);
}

TEST_F(TrapTest, ArrivesFromEachThread) {
  constexpr int kThreads = 8;
  constexpr int kEach = 5;
  std::vector<std::thread> threads;
  std::atomic<int> failures = 0;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < kEach; ++i) {
        const std::string text = std::to_string(thread) + "/" + std::to_string(i);
        if (send({thread % 2 == 0 ? kV1 : kV2c, "", 3, text}, receiver.server()) != 0) ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
  std::set<std::string> texts;
  for (const ReceivedTrap& trap : receiver.take(kThreads * kEach)) texts.insert(trap.text());
  EXPECT_EQ(texts.size(), static_cast<std::size_t>(kThreads * kEach));
}

TEST_F(TrapTest, IsKeptByARecorderOfItsThreadOnly) {
  host::trap::TrapRecorder recorder;
  EXPECT_EQ(send({kV2c, "secret", 5, "kept"}, receiver.server()), 0);
  ASSERT_EQ(recorder.traps().size(), 1u);
  EXPECT_EQ(recorder.traps()[0].server, receiver.server());
  EXPECT_EQ(recorder.traps()[0].version, kV2c);
  EXPECT_EQ(recorder.traps()[0].oid, kOid);
  EXPECT_EQ(recorder.traps()[0].specificType, 5u);
  EXPECT_EQ(recorder.traps()[0].text, "kept");
  std::thread([this] { EXPECT_EQ(send({kV1, "", 3, "sent"}, receiver.server()), 0); }).join();
  const auto traps = receiver.take(1);
  ASSERT_EQ(traps.size(), 1u);
  EXPECT_EQ(traps[0].text(), "sent") << "the other was not sent before";
  EXPECT_EQ(recorder.traps().size(), 1u);
}

TEST(TrapWithoutAReceiver, SaysWhyItWasNotSent) {
  EXPECT_EQ(code(send({}, "")), TrapError::NoServer);
  EXPECT_EQ(code(send({}, "a b")), TrapError::MalformedServer);
  EXPECT_EQ(code(send({}, "127.0.0.1:0")), TrapError::MalformedServer);
  EXPECT_EQ(code(send({}, "no-such-host.invalid")), TrapError::UnknownHost);
  EXPECT_EQ(code(send({}, "127.0.0.1", "one.two")), TrapError::MalformedOid);
  EXPECT_EQ(code(send({kV1, "", 2147483648ul}, "127.0.0.1:9")), TrapError::TypeOutOfRange);
  EXPECT_EQ(code(send({kV2c, "", 4294967296ul}, "127.0.0.1:9")), TrapError::TypeOutOfRange);
}

TEST(TrapWithoutAReceiver, CountsAsSent) {
  EXPECT_EQ(send({}, "127.0.0.1:1"), 0) << "traps are unconfirmed";
}

TEST(TrapDump, IsOneLineWithoutTheCommunity) {
  KaviTrapInfo trap("snmp.example:1162", kV2c, kOid, "secret", 3);
  trap.setTrapVarValue("two\nlines");
  EXPECT_EQ(trap.getDumpStr(), std::string("SNMPv2c to 'snmp.example:1162', enterprise ") + kOid +
                                   ", type 3, text 'two\\nlines'");
  trap.setTrapVarValue(std::string(201, 'x'));
  EXPECT_THAT(trap.getDumpStr(), testing::EndsWith("x'..."));
}

}  // namespace
