// The seal on reprocessing fields: who wrote them, for which message, and until when.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/delivery/envelope.h"
#include "host/delivery/reprocess_fields.h"
#include "host/delivery/seal_keys.h"
#include "library/platform/api.h"

namespace host::delivery {

/// How long a seal holds, in seconds.
inline constexpr std::int64_t kSealSeconds = std::int64_t{24} * 3600;
/// How often one message may come back for scanning.
inline constexpr unsigned int kMaxPasses = 5;

/// The value of the seal field: "1 KEY EXPIRY PASSES MAC", parted by blanks. KEY is the id of the
/// key, EXPIRY seconds since 1970, PASSES the number of this pass through scanning, counted from
/// 1, and MAC the HMAC-SHA-256 in 64 lower-case hexadecimal digits.
struct ReprocessSeal {
  std::string keyId;
  std::int64_t expiry = 0;
  unsigned int passes = 0;
  std::string mac;

  bool operator==(const ReprocessSeal&) const = default;
};

KAVI_API std::string writeSeal(const ReprocessSeal& seal);

/// Reads a value, unfolded and trimmed. Nothing for anything that `writeSeal` could not have
/// written but for the number of blanks: one seal has one form.
KAVI_API std::optional<ReprocessSeal> parseSeal(std::string_view value);

/// What a seal covers besides its own values. Header fields but these two are not part of it: mail
/// systems add and rewrite some.
struct SealedMail {
  std::string_view rules;
  std::string_view type;
  const Envelope& envelope;  ///< the order of recipients does not count
  Sha256Sum body;            ///< of bodyDigest
};

/// The MAC that \p seal must have.
KAVI_API std::string sealMac(const SealKey& key, const ReprocessSeal& seal, const SealedMail& mail);

/// Whether \p seal is the one that \p key makes for \p mail. Takes the same time for every MAC.
KAVI_API bool isSealedBy(const SealKey& key, const ReprocessSeal& seal, const SealedMail& mail);

/// Makes the seal for one more pass through scanning.
/// \param passes  those that the message has behind it
/// \return None with the field's value in \p value; TooManyPasses, or KeyUnavailable.
KAVI_API AdapterError makeSeal(const SealKeys& keys, const SealedMail& mail, unsigned int passes,
                               std::int64_t now, std::string& value);

}  // namespace host::delivery
