#include "host/store/postgres_pool.h"

#include <libpq-fe.h>

#include <algorithm>
#include <map>
#include <string_view>
#include <utility>

#include "host/core/text_escape.h"
#include "host/store/postgres_connection.h"
#include "host/store/schema.h"
#include "host/store/store_failure.h"

namespace host::store {

namespace {

constexpr std::size_t kIdleConnections = 8;
constexpr char kConnectSeconds[] = "10";

struct OptionsFree {
  void operator()(PQconninfoOption* options) const { PQconninfoFree(options); }
};

// Refuses a URI that falls apart at a sign of its password: the rest would be taken for the host,
// the port or the database, and be shown as such.
void requireOneMeaning(const std::string& location) {
  const std::size_t scheme = location.find("://");
  if (scheme == std::string::npos) return;
  std::string_view place = std::string_view(location).substr(scheme + 3);
  // Who, up to the first '@' before any '/'; then where, up to the '?'.
  if (const std::size_t who = place.substr(0, place.find('/')).find('@');
      who != std::string_view::npos) {
    place.remove_prefix(who + 1);
  }
  if (place.substr(0, place.find('?')).find('@') != std::string_view::npos) {
    throw StoreFailure(StoreError::InvalidArgument,
                       "in a name or password write %40 for '@' and %2F for '/'");
  }
}

void requirePorts(const std::string& ports) {
  if (ports.find_first_not_of("0123456789,") != std::string::npos) {
    throw StoreFailure(StoreError::InvalidArgument,
                       "its port is no number; in a password write %40 for '@', %2F for '/', %3F "
                       "for '?'");
  }
}

// The first parameter of a URI that no connection has; empty when there is none. A '@' behind the
// '?' says that this is a part of a password, which nobody may see.
std::string unknownParameter(const std::string& location) {
  const std::size_t begin = location.find('?');
  if (begin == std::string::npos || location.find('@', begin) != std::string::npos) return {};
  const std::unique_ptr<PQconninfoOption, OptionsFree> known(PQconndefaults());
  if (known == nullptr) return {};
  std::string_view rest = std::string_view(location).substr(begin + 1);
  while (!rest.empty()) {
    const std::string_view pair = rest.substr(0, rest.find('&'));
    rest.remove_prefix(std::min(pair.size() + 1, rest.size()));
    if (pair.find('=') == std::string_view::npos) return {};
    const std::string_view name = pair.substr(0, pair.find('='));
    bool isKnown = name == "ssl";
    for (const PQconninfoOption* option = known.get(); option->keyword != nullptr; ++option) {
      isKnown = isKnown || name == option->keyword;
    }
    if (!isKnown) return std::string(name);
  }
  return {};
}

// The parameters that `location` gives a value.
std::map<std::string, std::string> parametersOf(const std::string& location) {
  if (location.find('\0') != std::string::npos) {
    throw StoreFailure(StoreError::InvalidArgument, "a NUL in the connection string");
  }
  requireOneMeaning(location);
  char* fault = nullptr;
  const std::unique_ptr<PQconninfoOption, OptionsFree> options(
      PQconninfoParse(location.c_str(), &fault));
  const std::unique_ptr<char, decltype(&PQfreemem)> reason(fault, &PQfreemem);
  if (options == nullptr) {
    if (const std::string name = unknownParameter(location); !name.empty()) {
      throw StoreFailure(StoreError::InvalidArgument,
                         "there is no parameter '" + core::printable(name) +
                             "' (such as there are: connect_timeout, sslmode, host)");
    }
    // The reason repeats the text, which may hold a password.
    throw StoreFailure(StoreError::InvalidArgument, "it is no connection string");
  }
  std::map<std::string, std::string> found;
  for (const PQconninfoOption* option = options.get(); option->keyword != nullptr; ++option) {
    if (option->val != nullptr) found[option->keyword] = option->val;
  }
  if (const auto port = found.find("port"); port != found.end()) requirePorts(port->second);
  return found;
}

std::string quoted(const std::string& value) {
  std::string text = "'";
  for (const char byte : value) {
    if (byte == '\'' || byte == '\\') text += '\\';
    text += byte;
  }
  return text + "'";
}

std::string connectionString(const std::map<std::string, std::string>& parameters) {
  std::string text;
  for (const auto& [keyword, value] : parameters) text += keyword + "=" + quoted(value) + " ";
  return text;
}

std::string shownText(const std::map<std::string, std::string>& parameters) {
  const auto value = [&](const char* keyword) {
    const auto found = parameters.find(keyword);
    return found != parameters.end() ? found->second : std::string();
  };
  std::string text = "postgresql://" + value("host");
  if (!value("port").empty()) text += ":" + value("port");
  return text + "/" + value("dbname");
}

}  // namespace

PostgresPool::PostgresPool(const std::string& location, const PostgresOptions& options)
    : lockTimeoutMs_(options.lockTimeoutMs),
      patience_(std::make_shared<Patience>(options.patience)),
      upkeep_(options.upkeep) {
  std::map<std::string, std::string> parameters = parametersOf(location);
  shown_ = shownText(parameters);
  parameters.emplace("connect_timeout", kConnectSeconds);
  parameters.emplace("application_name", "kavi");
  parameters["client_encoding"] = "UTF8";
  location_ = connectionString(parameters);
}

std::unique_ptr<Connection> PostgresPool::take() {
  {
    const std::lock_guard lock(mutex_);
    while (!idle_.empty()) {
      std::unique_ptr<Connection> connection = std::move(idle_.back());
      idle_.pop_back();
      if (connection->isOpen()) return connection;
    }
  }
  std::unique_ptr<Connection> connection = look();
  if (upkeep_ == Upkeep::Refuse) {
    requireNewest(*connection, schemaSteps());
  } else {
    migrate(*connection, schemaSteps());
  }
  return connection;
}

std::unique_ptr<Connection> PostgresPool::look() {
  return std::make_unique<PostgresConnection>(location_, lockTimeoutMs_, patience_);
}

void PostgresPool::giveBack(std::unique_ptr<Connection> connection) {
  const std::lock_guard lock(mutex_);
  if (idle_.size() < kIdleConnections) idle_.push_back(std::move(connection));
}

void PostgresPool::dropIdle() {
  std::vector<std::unique_ptr<Connection>> dropped;
  const std::lock_guard lock(mutex_);
  dropped.swap(idle_);
}

}  // namespace host::store
