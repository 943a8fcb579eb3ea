// SHA-256 and its keyed form.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "library/platform/api.h"

namespace host::delivery {

inline constexpr std::size_t kSha256Bytes = 32;
using Sha256Sum = std::array<unsigned char, kSha256Bytes>;

/// The SHA-256 of bytes that come in pieces. One thread at a time.
class KAVI_API Sha256 {
 public:
  /// \throw std::bad_alloc when the crypto library cannot start a digest.
  Sha256();
  ~Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;

  void update(std::string_view bytes);
  /// The digest of everything given so far. Ends the object's use.
  Sha256Sum finish();

 private:
  struct Context;
  std::unique_ptr<Context> context_;
};

/// HMAC-SHA-256 (RFC 2104). \throw std::bad_alloc when the crypto library cannot do it.
KAVI_API Sha256Sum hmacSha256(std::string_view key, std::string_view text);

/// Lower-case hexadecimal digits.
KAVI_API std::string toHex(std::string_view bytes);
KAVI_API std::string toHex(const Sha256Sum& sum);

/// Whether both are the same, in a time that depends on the lengths only.
KAVI_API bool equalInConstantTime(std::string_view left, std::string_view right);

/// \p count bytes that nobody can guess. \throw std::bad_alloc without a source of randomness.
KAVI_API std::string randomBytes(std::size_t count);

/// A part of a text to be hashed that cannot run into its neighbours: "length:bytes,".
KAVI_API void appendDelimited(std::string& out, std::string_view part);

}  // namespace host::delivery
