// Which effects of which messages were begun and finished, so that each happens once.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/store/store_status.h"
#include "library/platform/api.h"

namespace host::store {

using Digest = std::array<unsigned char, 32>;

/// One effect of one message, both as digests that the caller makes.
struct EffectKey {
  Digest message{};  ///< what all effects of the message share
  Digest effect{};   ///< the effect; no two have the same

  bool operator==(const EffectKey&) const = default;
};

/// Who begins an effect, and when.
struct EffectClaim {
  std::string owner;              ///< of this attempt; no other attempt has the same
  std::int64_t now = 0;           ///< seconds since 1970
  std::int64_t leaseSeconds = 0;  ///< how long nobody else may take the effect over
  std::string intended;           ///< where the result is going to be; kept with the key
};

enum class EffectState {
  Begun,      ///< the effect is the caller's to bring about, for the first time
  TakenOver,  ///< the same; an earlier attempt never finished, and may have got anywhere
  Finished,   ///< it happened before
  UnderWay,   ///< another attempt has begun it, and its lease is still good
};

struct EffectAnswer {
  EffectState state = EffectState::Begun;
  /// Finished: what the attempt that did it gave as its result. TakenOver: what the earlier attempt
  /// intended. Otherwise empty.
  std::string result;
};

/// Durable: what an operation did survives a power cut once it has succeeded. Safe from any thread;
/// several processes, and machines where the store allows it, may share a ledger. After a failure
/// nothing has changed.
class KAVI_API EffectLedger {
 public:
  virtual ~EffectLedger() = default;

  /// Opens the key, or says what became of it. Of several callers at once one gets Begun or
  /// TakenOver, the others UnderWay.
  virtual StoreStatus beginEffect(const EffectKey& key, const EffectClaim& claim,
                                  EffectAnswer& answer) = 0;

  /// Marks an effect as done. Conflict when \p owner no longer holds it.
  virtual StoreStatus finishEffect(const EffectKey& key, const std::string& owner,
                                   const std::string& result) = 0;

  /// Drops a key that \p owner began and did not finish; nothing to do when there is none.
  virtual StoreStatus abandonEffect(const EffectKey& key, const std::string& owner) = 0;

  /// Drops a finished key whose result is \p result, because that result is gone.
  virtual StoreStatus reopenEffect(const EffectKey& key, const std::string& result) = 0;

  /// Drops every key of messages; of all of them or of none.
  virtual StoreStatus forgetMessages(const std::vector<Digest>& messages) = 0;

  /// Drops every key that was begun before \p time (seconds since 1970).
  /// \param dropped  receives how many.
  virtual StoreStatus forgetBefore(std::int64_t time, std::size_t& dropped) = 0;
};

}  // namespace host::store
