#include "host/delivery/digest.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <new>

namespace host::delivery {

namespace {

void require(bool done) {
  if (!done) throw std::bad_alloc();
}

struct ContextDeleter {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

}  // namespace

struct Sha256::Context {
  std::unique_ptr<EVP_MD_CTX, ContextDeleter> handle{EVP_MD_CTX_new()};
};

Sha256::Sha256() : context_(std::make_unique<Context>()) {
  require(context_->handle != nullptr);
  require(EVP_DigestInit_ex(context_->handle.get(), EVP_sha256(), nullptr) == 1);
}

Sha256::~Sha256() = default;

void Sha256::update(std::string_view bytes) {
  require(EVP_DigestUpdate(context_->handle.get(), bytes.data(), bytes.size()) == 1);
}

Sha256Sum Sha256::finish() {
  Sha256Sum sum{};
  require(EVP_DigestFinal_ex(context_->handle.get(), sum.data(), nullptr) == 1);
  return sum;
}

Sha256Sum hmacSha256(std::string_view key, std::string_view text) {
  Sha256Sum sum{};
  unsigned int size = 0;
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  require(HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), bytes, text.size(),
               sum.data(), &size) != nullptr);
  return sum;
}

std::string toHex(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(bytes.size() * 2);
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    hex += kDigits[byte >> 4];
    hex += kDigits[byte & 15];
  }
  return hex;
}

std::string toHex(const Sha256Sum& sum) {
  return toHex(std::string_view(reinterpret_cast<const char*>(sum.data()), sum.size()));
}

bool equalInConstantTime(std::string_view left, std::string_view right) {
  return left.size() == right.size() && CRYPTO_memcmp(left.data(), right.data(), left.size()) == 0;
}

std::string randomBytes(std::size_t count) {
  std::string bytes(count, '\0');
  require(RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(count)) == 1);
  return bytes;
}

void appendDelimited(std::string& out, std::string_view part) {
  out += std::to_string(part.size());
  out += ':';
  out += part;
  out += ',';
}

}  // namespace host::delivery
