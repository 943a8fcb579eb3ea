#include "gateway/cli/delivery_setup.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "gateway/cli/startup.h"
#include "host/core/identity.h"
#include "host/core/text_escape.h"

namespace gateway::cli {
namespace {

/// Without links, "." and ".." as far as it is there. \return empty when it cannot be looked at.
std::filesystem::path plainPath(const std::string& path) {
  std::error_code fault;
  const std::filesystem::path absolute = std::filesystem::absolute(path, fault);
  std::filesystem::path plain = std::filesystem::weakly_canonical(absolute, fault);
  if (fault) return {};
  return plain.has_filename() ? plain : plain.parent_path();
}

/// Whether \p path is \p folder or lies below it.
bool isWithin(const std::filesystem::path& path, const std::filesystem::path& folder) {
  return !folder.empty() &&
         std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first ==
             folder.end();
}

}  // namespace

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

bool actAsOwner(Kavi::GlobalSetting& settings, const std::string& state,
                const host::delivery::DeliverySettings& delivery, bool told) {
  std::string user;
  if (state.empty()) settings.getString("user", user, "milter", 0);
  std::string became;
  const std::string fault = host::core::becomeOwner(delivery.stateFolder, user, became);
  if (!fault.empty()) {
    complain(host::core::printable(fault));
  } else if (told && !became.empty()) {
    remark(host::core::printable("acting as user '" + became + "', who works on the state folder " +
                                 delivery.stateFolder +
                                 ": inputs and --out have to be open to that user"));
  }
  return fault.empty();
}

bool mayWriteTo(const std::string& out, Kavi::GlobalSetting& settings, const std::string& state) {
  struct Own {
    const char* what;
    const char* section;
    const char* key;
    std::string path;
  };
  const std::string standard = host::delivery::DeliverySettings().stateFolder;
  for (Own own : {Own{"state", "delivery", "state_folder", standard},
                  Own{"quarantine", "general", "queue_quarantine", {}},
                  Own{"archive", "general", "queue_archive", {}}}) {
    settings.getString(own.key, own.path, own.section, 0);
    if (own.section == std::string("delivery") && !state.empty()) own.path = state;
    if (own.path.empty() || !isWithin(plainPath(out), plainPath(own.path))) continue;
    complain(host::core::printable("--out " + out + ": lies in the gateway's " + own.what +
                                   " folder " + own.path + " (" + own.key + " in section " +
                                   own.section + "; choose another --out folder)"));
    return false;
  }
  return true;
}

}  // namespace gateway::cli
