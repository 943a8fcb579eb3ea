#include "gateway/policy/store_location.h"

namespace gateway::policy {
namespace {

constexpr char kSqlitePrefix[] = "sqlite:";

}  // namespace

std::string configuredStore(Kavi::GlobalSetting& settings, std::string& fault) {
  std::string location;
  if (settings.getString("location", location, "store", 0) != 0) return {};
  // Every program that reads the settings stands in another folder.
  if (location.starts_with(kSqlitePrefix) &&
      !location.starts_with(kSqlitePrefix + std::string("/"))) {
    fault =
        "settings: [store] location: the path is not absolute (write one that begins with "
        "\"/\")";
    return {};
  }
  return location;
}

}  // namespace gateway::policy
