#include "gateway/cli/store_setup.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

#include "gateway/cli/startup.h"
#include "gateway/policy/store_location.h"
#include "host/core/ini_settings.h"
#include "host/core/text_escape.h"
#include "host/store/configured_store.h"

namespace gateway::cli {
namespace {

using host::core::printable;
using host::store::Database;
using host::store::StoreForm;
using host::store::StoreStatus;
using host::store::Upkeep;

constexpr std::size_t kMaxNameBytes = 64;

/// The location that the settings give; empty, after a complaint, when they give none that can be
/// used.
std::string configuredLocation(Kavi::GlobalSetting& settings) {
  std::string fault;
  std::string location = policy::configuredStore(settings, fault);
  if (!fault.empty()) {
    complain(fault);
  } else if (location.empty()) {
    complain(
        "no store is named (write --store sqlite:PATH or --store postgresql://USER@HOST/DATABASE, "
        "or location in section store of the settings file of --config)");
  }
  return location;
}

}  // namespace

std::string actorName() {
  const passwd* user = ::getpwuid(::geteuid());
  std::string name = user != nullptr ? user->pw_name : "user " + std::to_string(::geteuid());
  const char* before = std::getenv("SUDO_USER");
  if (before != nullptr && *before != '\0' && name != before) {
    name += " (sudo: " + std::string(before).substr(0, kMaxNameBytes) + ")";
  }
  return printable(name);
}

std::shared_ptr<Database> findStore(const std::string& location, Kavi::GlobalSetting& settings,
                                    Upkeep upkeep) {
  const std::string wanted = location.empty() ? configuredLocation(settings) : location;
  if (wanted.empty()) return nullptr;
  StoreStatus status;
  std::shared_ptr<Database> store = host::store::makeStore(wanted, status, upkeep);
  if (store == nullptr) complain(status.text);
  return store;
}

namespace {

/// Whether \p store can be used as it stands; complains when not.
bool isReady(Database& store) {
  const std::string called = "store " + printable(store.location()) + ": ";
  StoreForm form;
  if (const StoreStatus status = store.readForm(form); !status.ok()) {
    complain(status.text);
  } else if (form.version == 0) {
    complain(called + "there is none (kavi store init makes it)");
  } else if (form.version < form.newest) {
    complain(called + "it has version " + std::to_string(form.version) + ", this program needs " +
             std::to_string(form.newest) +
             " (kavi store migrate brings it there; older programs cannot use it any more then)");
  } else {
    return true;
  }
  return false;
}

}  // namespace

std::shared_ptr<Database> openStore(const std::string& location, Kavi::GlobalSetting& settings) {
  std::shared_ptr<Database> store = findStore(location, settings, Upkeep::Refuse);
  if (store == nullptr || !isReady(*store)) return nullptr;
  host::store::configureStore(store, actorName());
  return store;
}

int openStore(const StoreOptions& options, std::shared_ptr<Database>& store) {
  host::core::IniSettings settings;
  if (!loadSettings(options.config, settings)) return ExitUsage;
  store = findStore(options.location, settings, Upkeep::Refuse);
  if (store == nullptr) return ExitUsage;
  if (!isReady(*store)) return ExitFailed;
  host::store::configureStore(store, actorName());
  return ExitDone;
}

}  // namespace gateway::cli
