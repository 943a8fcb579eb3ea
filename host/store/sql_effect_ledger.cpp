// Which effects were begun and finished.
#include <utility>

#include "host/store/sql_store.h"
#include "host/store/sql_support.h"
#include "host/store/sql_texts.h"

namespace host::store {

namespace {

constexpr char kLedgerChange[] = "changing the effect ledger";

std::string_view bytesOf(const Digest& digest) {
  return {reinterpret_cast<const char*>(digest.data()), digest.size()};
}

bool begin(Connection& connection, const EffectKey& key, const EffectClaim& claim) {
  Query query(connection, sql::kBeginEffect);
  query.bind(bytesOf(key.effect))
      .bind(bytesOf(key.message))
      .bind(claim.owner)
      .bind(claim.now)
      .bind(claim.now + claim.leaseSeconds)
      .bind(claim.intended);
  return query.run() != 0;
}

bool takeOver(Connection& connection, const EffectKey& key, const EffectClaim& claim,
              const std::string& fromOwner) {
  Query query(connection, sql::kTakeOverEffect);
  query.bind(claim.owner)
      .bind(claim.now)
      .bind(claim.now + claim.leaseSeconds)
      .bind(claim.intended)
      .bind(bytesOf(key.effect))
      .bind(fromOwner);
  return query.run() != 0;
}

// What became of an effect that somebody has begun before.
EffectAnswer resume(Connection& connection, const EffectKey& key, const EffectClaim& claim) {
  std::string owner;
  std::string result;
  {
    Query query(connection, sql::kFindEffect);
    query.bind(bytesOf(key.effect));
    if (!query.next()) throw StoreFailure(StoreError::Internal, "an effect that went away");
    result = query.bytes(3);
    if (query.number(2) != 0) return {EffectState::Finished, std::move(result)};
    if (query.number(1) > claim.now) return {EffectState::UnderWay, {}};
    owner = query.bytes(0);
  }
  if (!takeOver(connection, key, claim, owner)) return {EffectState::UnderWay, {}};
  return {EffectState::TakenOver, std::move(result)};
}

}  // namespace

void finishHeld(Connection& connection, const EffectKey& key, const std::string& owner,
                const std::string& result) {
  Query query(connection, sql::kFinishEffect);
  query.bind(result).bind(bytesOf(key.effect)).bind(owner);
  if (query.run() == 0) throw StoreFailure(StoreError::Conflict, "the effect has another owner");
}

StoreStatus SqlStore::beginEffect(const EffectKey& key, const EffectClaim& claim,
                                  EffectAnswer& answer) {
  EffectAnswer found;
  StoreStatus status = run(kLedgerChange, Access::Write, [&](Connection& connection) {
    found = EffectAnswer{};
    if (!begin(connection, key, claim)) found = resume(connection, key, claim);
  });
  if (status.ok()) answer = std::move(found);
  return status;
}

StoreStatus SqlStore::finishEffect(const EffectKey& key, const std::string& owner,
                                   const std::string& result) {
  return run(kLedgerChange, Access::Write,
             [&](Connection& connection) { finishHeld(connection, key, owner, result); });
}

StoreStatus SqlStore::abandonEffect(const EffectKey& key, const std::string& owner) {
  return run(kLedgerChange, Access::Write, [&](Connection& connection) {
    Query(connection, sql::kAbandonEffect).bind(bytesOf(key.effect)).bind(owner).run();
  });
}

StoreStatus SqlStore::reopenEffect(const EffectKey& key, const std::string& result) {
  return run(kLedgerChange, Access::Write, [&](Connection& connection) {
    Query(connection, sql::kReopenEffect).bind(bytesOf(key.effect)).bind(result).run();
  });
}

StoreStatus SqlStore::forgetMessages(const std::vector<Digest>& messages) {
  return run(kLedgerChange, Access::Write, [&](Connection& connection) {
    for (const Digest& message : messages) {
      Query(connection, sql::kForgetMessage).bind(bytesOf(message)).run();
    }
  });
}

StoreStatus SqlStore::forgetBefore(std::int64_t time, std::size_t& dropped) {
  std::size_t rows = 0;
  StoreStatus status = run(kLedgerChange, Access::Write, [&](Connection& connection) {
    rows = static_cast<std::size_t>(Query(connection, sql::kForgetBefore).bind(time).run());
  });
  if (status.ok()) dropped = rows;
  return status;
}

}  // namespace host::store
