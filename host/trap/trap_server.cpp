#include "host/trap/trap_server.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <charconv>
#include <future>
#include <memory>
#include <thread>

namespace host::trap {

namespace {

constexpr int kMaxLookups = 8;
std::atomic<int> lookupsUnderWay = 0;

bool isPort(std::string_view text) {
  unsigned int port = 0;
  const char* const end = text.data() + text.size();
  const auto [next, failure] = std::from_chars(text.data(), end, port);
  return failure == std::errc() && next == end && port >= 1 && port <= 65535;
}

bool isHost(std::string_view text) {
  return !text.empty() && std::none_of(text.begin(), text.end(), [](char c) {
    return static_cast<unsigned char>(c) <= ' ' || c == 127 || c == '[' || c == ']' || c == '/';
  });
}

bool isNumeric(int family, const std::string& host) {
  unsigned char address[sizeof(in6_addr)];
  return ::inet_pton(family, host.c_str(), address) == 1;
}

std::string peer(const std::string& address, const std::string& port) {
  if (isNumeric(AF_INET, address)) return "udp:" + address + ":" + port;
  return "udp6:[" + address + "]:" + port;
}

/// A lookup that its asker may leave. It counts as under way until it ends.
class Lookup {
 public:
  static std::future<std::string> start(const std::string& host, const HostLookup& lookUp) {
    auto lookup = std::make_shared<Lookup>();
    std::future<std::string> answer = lookup->answer_.get_future();
    std::thread([lookup, host, lookUp] {
      try {
        lookup->answer_.set_value(lookUp(host));
      } catch (...) {
        lookup->answer_.set_exception(std::current_exception());
      }
    }).detach();
    return answer;
  }

  Lookup() { ++lookupsUnderWay; }
  ~Lookup() { --lookupsUnderWay; }
  Lookup(const Lookup&) = delete;
  Lookup& operator=(const Lookup&) = delete;

 private:
  std::promise<std::string> answer_;
};

}  // namespace

std::optional<TrapServer> parseTrapServer(std::string_view text) {
  TrapServer server;
  std::string_view host = text;
  std::string_view port;
  bool hasPort = false;
  if (text.starts_with('[')) {
    const std::size_t close = text.find(']');
    if (close == std::string_view::npos) return std::nullopt;
    host = text.substr(1, close - 1);
    const std::string_view rest = text.substr(close + 1);
    if (!rest.empty() && !rest.starts_with(':')) return std::nullopt;
    hasPort = !rest.empty();
    port = rest.substr(std::min<std::size_t>(1, rest.size()));
    if (!isNumeric(AF_INET6, std::string(host))) return std::nullopt;
  } else if (std::count(text.begin(), text.end(), ':') == 1) {
    const std::size_t colon = text.find(':');
    host = text.substr(0, colon);
    port = text.substr(colon + 1);
    hasPort = true;
  }
  if (!isHost(host) || (hasPort && !isPort(port))) return std::nullopt;
  if (!text.starts_with('[') && host.find(':') != std::string_view::npos &&
      !isNumeric(AF_INET6, std::string(host))) {
    return std::nullopt;
  }
  server.host = host;
  if (hasPort) server.port = port;
  return server;
}

std::string lookUpHost(const std::string& host) {
  addrinfo hints = {};
  hints.ai_socktype = SOCK_DGRAM;
  hints.ai_flags = AI_ADDRCONFIG;
  addrinfo* found = nullptr;
  if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0) return {};
  const std::unique_ptr<addrinfo, void (*)(addrinfo*)> list(found, ::freeaddrinfo);
  char address[NI_MAXHOST] = {};
  if (list == nullptr || ::getnameinfo(list->ai_addr, list->ai_addrlen, address, sizeof address,
                                       nullptr, 0, NI_NUMERICHOST) != 0) {
    return {};
  }
  return address;
}

TrapError resolveTrapServer(const TrapServer& server, const HostLookup& lookUp,
                            std::chrono::milliseconds limit, std::string& address) {
  std::string numeric = server.host;
  if (!isNumeric(AF_INET, numeric) && !isNumeric(AF_INET6, numeric)) {
    if (lookupsUnderWay >= kMaxLookups) return TrapError::LookupTimeout;
    std::future<std::string> answer = Lookup::start(server.host, lookUp);
    if (answer.wait_for(limit) != std::future_status::ready) return TrapError::LookupTimeout;
    numeric = answer.get();
    if (numeric.empty()) return TrapError::UnknownHost;
  }
  address = peer(numeric, server.port);
  return TrapError::None;
}

}  // namespace host::trap
