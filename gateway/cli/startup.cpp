#include "gateway/cli/startup.h"

#include <cstdio>
#include <utility>

#include "library/framework/init_action_lib.h"

namespace gateway::cli {
namespace {

host::core::LogOptions logOptions(host::core::IniSettings& settings) {
  host::core::LogOptions options;
  // Reports carry the lines of each action; the log itself speaks only when it is told to.
  options.level = 0;
  settings.getInt("Level", options.level, "log", 0);
  std::string format;
  settings.getString("Format", format, "log", 0);
  if (format == "json") options.format = host::core::LogFormat::Json;
  std::string target;
  settings.getString("Target", target, "log", 0);
  if (target == "syslog") options.target = host::core::LogTarget::Syslog;
  return options;
}

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

void setMissing(host::core::IniSettings& settings) {
  for (const Default& row : kDefaults) {
    std::string value;
    if (settings.getString(row.key, value, row.section, 0) != 0 || value.empty()) {
      settings.override(row.section, row.key, row.value);
    }
  }
}

}  // namespace

std::unique_ptr<Startup> Startup::begin(const std::string& configPath) {
  std::unique_ptr<Startup> startup(new Startup());
  if (std::string error; !configPath.empty() && !startup->settings_.loadFile(configPath, error)) {
    while (!error.empty() && error.back() == '\n') error.pop_back();
    std::fprintf(stderr, "%s\n", error.c_str());
    return nullptr;
  }
  setMissing(startup->settings_);
  startup->log_ = std::make_unique<host::core::ProcessLog>(logOptions(startup->settings_));
  InitActionLib(startup->settings_, *startup->log_);
  return startup;
}

void complain(const std::string& text) { std::fprintf(stderr, "kavi: %s\n", text.c_str()); }

std::shared_ptr<const policy::Snapshot> loadSnapshot(const std::string& path) {
  policy::Diagnostics diagnostics(path);
  std::shared_ptr<const policy::Snapshot> snapshot;
  if (const auto loaded = policy::loadPolicyFile(path, diagnostics)) {
    snapshot = policy::Snapshot::build(loaded->rows, diagnostics, loaded->lines);
  }
  for (const policy::Diagnostic& diagnostic : diagnostics.all()) {
    std::fprintf(stderr, "%s\n", diagnostics.text(diagnostic).c_str());
  }
  if (diagnostics.errorCount() > diagnostics.all().size()) {
    std::fprintf(stderr, "… and %zu more errors\n",
                 diagnostics.errorCount() - diagnostics.all().size());
  }
  return snapshot;
}

}  // namespace gateway::cli
