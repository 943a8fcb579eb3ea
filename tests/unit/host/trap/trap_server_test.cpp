#include "host/trap/trap_server.h"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <thread>

namespace {

using namespace host::trap;
using namespace std::chrono_literals;

struct ServerCase {
  const char* text;
  const char* host;
  const char* port;
};

TEST(TrapServer, IsAHostAndAPort) {
  const ServerCase cases[] = {
      {"snmp.example", "snmp.example", "162"},
      {"snmp.example:1162", "snmp.example", "1162"},
      {"192.0.2.1", "192.0.2.1", "162"},
      {"192.0.2.1:65535", "192.0.2.1", "65535"},
      {"::1", "::1", "162"},
      {"2001:db8::7", "2001:db8::7", "162"},
      {"[::1]", "::1", "162"},
      {"[2001:db8::7]:1", "2001:db8::7", "1"},
  };
  for (const ServerCase& test : cases) {
    SCOPED_TRACE(test.text);
    const auto server = parseTrapServer(test.text);
    ASSERT_TRUE(server);
    EXPECT_EQ(server->host, test.host);
    EXPECT_EQ(server->port, test.port);
  }
}

TEST(TrapServer, IsNothingElse) {
  for (const char* text :
       {"", ":162", "host:", "host:0", "host:65536", "host:x", "host:1x", "host:-1", "a b", "a\tb",
        "a\nb", "udp:host:1", "[::1", "[::1]x", "[::1]:", "[host]:1", "[]", "::x", "unix/path"}) {
    EXPECT_FALSE(parseTrapServer(text)) << text;
  }
}

TrapError resolve(const char* text, const HostLookup& lookUp, std::string& address,
                  std::chrono::milliseconds limit = 10s) {
  return resolveTrapServer(parseTrapServer(text).value(), lookUp, limit, address);
}

std::string neverAsked(const std::string& /*host*/) { throw std::logic_error("asked"); }

TEST(TrapServerAddress, OfAnAddressIsItself) {
  std::string address;
  EXPECT_EQ(resolve("192.0.2.1:1162", neverAsked, address), TrapError::None);
  EXPECT_EQ(address, "udp:192.0.2.1:1162");
  EXPECT_EQ(resolve("[::1]:1162", neverAsked, address), TrapError::None);
  EXPECT_EQ(address, "udp6:[::1]:1162");
}

TEST(TrapServerAddress, OfANameIsLookedUp) {
  std::string address;
  EXPECT_EQ(resolve(
                "snmp.example",
                [](const std::string& host) {
                  return host == "snmp.example" ? std::string("192.0.2.7") : std::string();
                },
                address),
            TrapError::None);
  EXPECT_EQ(address, "udp:192.0.2.7:162");
  EXPECT_EQ(resolve(
                "snmp.example", [](const std::string&) { return std::string("::1"); }, address),
            TrapError::None);
  EXPECT_EQ(address, "udp6:[::1]:162");
}

TEST(TrapServerAddress, IsUnknownForANameWithout) {
  std::string address = "before";
  EXPECT_EQ(resolve(
                "snmp.example", [](const std::string&) { return std::string(); }, address),
            TrapError::UnknownHost);
  EXPECT_EQ(address, "before");
  EXPECT_EQ(lookUpHost("no-such-host.invalid"), "");
}

TEST(TrapServerAddress, IsLookedUpHere) {
  const std::string address = lookUpHost("localhost");
  EXPECT_TRUE(address == "127.0.0.1" || address == "::1") << address;
}

TEST(TrapServerAddress, PassesOnWhatALookupThrows) {
  std::string address;
  EXPECT_THROW(resolve("snmp.example", neverAsked, address), std::logic_error);
}

/// A name service that answers when it is told to.
class SlowService {
 public:
  SlowService() : opened_(open_.get_future()) {}
  HostLookup lookUp() {
    return [opened = opened_](const std::string&) {
      opened.wait();
      return std::string("192.0.2.9");
    };
  }
  void answer() { open_.set_value(); }

 private:
  std::promise<void> open_;
  std::shared_future<void> opened_;
};

TEST(TrapServerAddress, IsNotWaitedForLongerThanAllowed) {
  SlowService service;
  std::string address;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(resolve("snmp.example", service.lookUp(), address, 50ms), TrapError::LookupTimeout);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
  service.answer();
}

TEST(TrapServerAddress, IsNotLookedUpWhileManyAreUnderWay) {
  SlowService service;
  std::string address;
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(resolve("snmp.example", service.lookUp(), address, 1ms), TrapError::LookupTimeout);
  }
  EXPECT_EQ(resolve("snmp.example", neverAsked, address), TrapError::LookupTimeout) << "not asked";
  EXPECT_EQ(resolve("192.0.2.1", neverAsked, address), TrapError::None) << "needs no lookup";
  service.answer();
  // They end one after the other; then names are looked up again.
  const auto quick = [](const std::string&) { return std::string("192.0.2.2"); };
  const auto deadline = std::chrono::steady_clock::now() + 10s;
  while (resolve("snmp.example", quick, address) != TrapError::None) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    std::this_thread::yield();
  }
  EXPECT_EQ(address, "udp:192.0.2.2:162");
}

}  // namespace
