#include "host/delivery/delivery_state.h"

#include "host/core/line_file.h"
#include "host/delivery/adapter_guard.h"

namespace host::delivery {

namespace {

constexpr char kSpoolFolder[] = "/spool";
constexpr char kDecisionsFile[] = "decisions.jsonl";

}  // namespace

AdapterError DeliveryState::open(const std::string& path) {
  return guardedOutcome([&] {
    const core::FileError error = folder_.open(path, true);
    if (error != core::FileError::None) return adapterErrorOf(error);
    return spool_.open(path + kSpoolFolder);
  });
}

AdapterError DeliveryState::recordDecision(const std::string& line) {
  return guardedOutcome([&] {
    if (!folder_.isOpen()) return AdapterError::MissingFolder;
    return adapterErrorOf(
        core::appendLine(folder_, kDecisionsFile, line, core::Durability::Flushed));
  });
}

}  // namespace host::delivery
