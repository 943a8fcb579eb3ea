#include "host/delivery/delivery_state.h"

#include <cstdint>
#include <utility>

#include "host/core/line_file.h"
#include "host/delivery/adapter_guard.h"
#include "host/store/sqlite_store.h"

namespace host::delivery {

namespace {

constexpr char kDecisionsFile[] = "decisions.jsonl";
constexpr char kStoreFile[] = "/store.sqlite";
// Longer than any sender tries (RFC 5321 section 4.5.4.1 speaks of four to five days).
constexpr std::int64_t kEffectMemorySeconds = std::int64_t{30} * 24 * 60 * 60;

}  // namespace

DeliveryState::DeliveryState(core::FileOps& ops, std::shared_ptr<store::Store> store)
    : ops_(ops), folder_(ops), spool_(ops), store_(std::move(store)) {}

AdapterError DeliveryState::open(const std::string& path) {
  return guardedOutcome([&] {
    const core::FileError error = folder_.open(path, true);
    if (error != core::FileError::None) return adapterErrorOf(error);
    if (store_ == nullptr) {
      store_ =
          std::make_shared<store::SqliteStore>(path + kStoreFile, store::SqliteOptions{}, ops_);
    }
    filing_ = std::make_unique<Filing>(*store_, ops_);
    spoolIndex_ = std::make_unique<SpoolIndex>(*store_, spoolPath(path));
    return spool_.open(spoolPath(path));
  });
}

AdapterError DeliveryState::prepareFiling(store::MessageKind kind, const std::string& directory,
                                          SweepReport& report, std::string& fault) {
  if (store_ == nullptr) return AdapterError::MissingFolder;
  return FilingSweep(*store_, ops_).run(kind, directory, report, fault);
}

void DeliveryState::observe(store::StoreObserver* store, SmtpObserver* smtp) {
  if (store_ != nullptr) store_->observe(store);
  smtpObserver_ = smtp;
}

AdapterError DeliveryState::prepareSpool(SpoolSweepReport& report, std::string& fault) {
  if (spoolIndex_ == nullptr) return AdapterError::MissingFolder;
  return SpoolSweep(spool_, *spoolIndex_).run(report, fault);
}

AdapterError DeliveryState::answer(const std::vector<store::Digest>& messages, std::string& fault) {
  if (store_ == nullptr) return AdapterError::MissingFolder;
  return guardedOutcome([&] {
    if (messages.empty()) return AdapterError::None;
    const store::StoreStatus status = store_->forgetMessages(messages);
    if (!status.ok()) fault = status.text;
    return adapterErrorOf(status.error);
  });
}

AdapterError DeliveryState::forgetOldEffects(std::size_t& dropped, std::string& fault) {
  if (store_ == nullptr) return AdapterError::MissingFolder;
  return guardedOutcome([&] {
    const store::StoreStatus status =
        store_->forgetBefore(MessageEffects::systemClock() - kEffectMemorySeconds, dropped);
    if (!status.ok()) fault = status.text;
    return adapterErrorOf(status.error);
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
