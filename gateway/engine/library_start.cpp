#include "gateway/engine/library_start.h"

#include <string>

#include "library/framework/init_action_lib.h"

namespace gateway::engine {
namespace {

struct Default {
  const char* section;
  const char* key;
  const char* value;
};

/// What a settings file need not say. Folders: where an installed gateway files mail; a run that
/// only shows what would happen has to name some too, or %QUARANTINE_PATH% would stand for nothing.
/// Charsets: with the library's own default, ASCII, what stamps and subjects say in other letters
/// would be lost or left out.
constexpr Default kDefaults[] = {
    {"general", "queue_quarantine", "/var/spool/kavi/quarantine"},
    {"general", "queue_archive", "/var/spool/kavi/archive"},
    {"MessageModule", "DefaultSourceCharset", "utf-8"},
    {"MessageModule", "UseUTF8AsPreferCharsetForStamp", "1"},
};

}  // namespace

void setDefaults(host::core::IniSettings& settings) {
  for (const Default& row : kDefaults) {
    std::string value;
    if (settings.getString(row.key, value, row.section, 0) != 0 || value.empty()) {
      settings.override(row.section, row.key, row.value);
    }
  }
}

host::core::LogOptions readLogOptions(host::core::IniSettings& settings, int level) {
  host::core::LogOptions options;
  options.level = level;
  settings.getInt("Level", options.level, "log", 0);
  std::string format;
  settings.getString("Format", format, "log", 0);
  if (format == "json") options.format = host::core::LogFormat::Json;
  std::string target;
  settings.getString("Target", target, "log", 0);
  if (target == "syslog") options.target = host::core::LogTarget::Syslog;
  return options;
}

void startLibrary(host::core::IniSettings& settings, host::core::ProcessLog& log) {
  setDefaults(settings);
  InitActionLib(settings, log);
}

}  // namespace gateway::engine
