#include "gateway/cli/delivery_setup.h"

#include <filesystem>

#include "gateway/cli/startup.h"
#include "host/core/text_escape.h"

namespace gateway::cli {

bool readDelivery(Kavi::GlobalSetting& settings, const std::string& state,
                  host::delivery::DeliverySettings& found) {
  std::string faults;
  if (!found.read(settings, faults)) {
    while (!faults.empty()) {
      const std::size_t end = faults.find('\n');
      complain("settings: " + host::core::printable(faults.substr(0, end)));
      faults.erase(0, end == std::string::npos ? end : end + 1);
    }
    return false;
  }
  if (!state.empty()) found.stateFolder = std::filesystem::absolute(state).string();
  return true;
}

}  // namespace gateway::cli
