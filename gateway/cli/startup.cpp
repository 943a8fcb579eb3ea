#include "gateway/cli/startup.h"

#include <cstddef>
#include <utility>
#include <vector>

#include "gateway/engine/known_settings.h"
#include "gateway/engine/library_start.h"
#include "gateway/engine/settings_check.h"
#include "host/core/text_escape.h"

namespace gateway::cli {

std::unique_ptr<Startup> Startup::begin(const std::string& configPath) {
  std::unique_ptr<Startup> startup(new Startup());
  if (!loadSettings(configPath, startup->settings_)) return nullptr;
  // Reports carry the lines of each action; the log itself speaks only when it is told to.
  startup->log_ =
      std::make_unique<host::core::ProcessLog>(engine::readLogOptions(startup->settings_, 0));
  engine::startLibrary(startup->settings_, *startup->log_);
  return startup;
}

bool loadSettings(const std::string& path, host::core::IniSettings& settings) {
  std::string error;
  if (path.empty()) return true;
  if (settings.loadFile(path, error)) {
    for (const std::string& doubt : engine::doubtfulSettings(settings)) {
      remark("warning: " + host::core::printable(path) + ": " + doubt);
    }
    const std::string faults = engine::settingsFaults(settings);
    for (std::size_t at = 0; at < faults.size(); at = faults.find('\n', at) + 1) {
      complain("settings: " + host::core::printable(faults.substr(at, faults.find('\n', at) - at)));
    }
    return faults.empty();
  }
  while (!error.empty() && error.back() == '\n') error.pop_back();
  complainOfPlace(error);
  return false;
}

}  // namespace gateway::cli
