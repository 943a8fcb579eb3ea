// What every command that touches actions starts with.
#pragma once

#include <memory>
#include <string>

#include "gateway/cli/complaints.h"
#include "host/core/ini_settings.h"
#include "host/core/log.h"

namespace gateway::cli {

/// Exit statuses of all commands.
enum ExitStatus : int { ExitDone = 0, ExitFailed = 1, ExitUsage = 2, ExitUnsent = 3 };

/// The settings, the log and the started library, once per process.
class Startup {
 public:
  /// Reads \p configPath (empty for none) and starts the library.
  /// \return null after writing the reason to standard error.
  static std::unique_ptr<Startup> begin(const std::string& configPath);

  host::core::ProcessLog& log() { return *log_; }
  host::core::IniSettings& settings() { return settings_; }

 private:
  Startup() = default;
  host::core::IniSettings settings_;
  std::unique_ptr<host::core::ProcessLog> log_;
};

/// Reads the settings file \p path (empty for none). What nobody reads in it is warned of.
/// \return false after writing every fault to standard error.
bool loadSettings(const std::string& path, host::core::IniSettings& settings);

}  // namespace gateway::cli
