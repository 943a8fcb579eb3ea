#include "host/delivery/reprocess_seal.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <vector>

namespace host::delivery {

namespace {

constexpr std::string_view kVersion = "1";
constexpr std::string_view kDomain = "kavi reprocess seal 1";
constexpr std::size_t kWords = 5;
constexpr std::size_t kMacDigits = 2 * kSha256Bytes;
constexpr std::string_view kBlanks = " \t";

bool isMac(std::string_view text) {
  return text.size() == kMacDigits && std::all_of(text.begin(), text.end(), [](char c) {
           return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
         });
}

// Decimal digits without sign and without leading zeros.
template <class Number>
bool readNumber(std::string_view text, Number& value) {
  if (text.empty() || text[0] < '1' || text[0] > '9') return false;
  const char* last = text.data() + text.size();
  const auto [end, fault] = std::from_chars(text.data(), last, value);
  return fault == std::errc() && end == last;
}

}  // namespace

std::string writeSeal(const ReprocessSeal& seal) {
  std::string value(kVersion);
  value += ' ' + seal.keyId + ' ' + std::to_string(seal.expiry) + ' ' + std::to_string(seal.passes);
  return value + ' ' + seal.mac;
}

std::optional<ReprocessSeal> parseSeal(std::string_view value) {
  std::array<std::string_view, kWords> words;
  std::size_t count = 0;
  while (!value.empty()) {
    if (count == kWords) return std::nullopt;
    words[count] = value.substr(0, value.find_first_of(kBlanks));
    value.remove_prefix(words[count++].size());
    const std::size_t next = value.find_first_not_of(kBlanks);
    value.remove_prefix(std::min(next, value.size()));
  }
  ReprocessSeal seal;
  const bool good = count == kWords && words[0] == kVersion && isSealKeyId(words[1]) &&
                    readNumber(words[2], seal.expiry) && readNumber(words[3], seal.passes) &&
                    isMac(words[4]);
  if (!good) return std::nullopt;
  seal.keyId = words[1];
  seal.mac = words[4];
  return seal;
}

std::string sealMac(const SealKey& key, const ReprocessSeal& seal, const SealedMail& mail) {
  std::vector<std::string_view> recipients(mail.envelope.recipients.begin(),
                                           mail.envelope.recipients.end());
  std::sort(recipients.begin(), recipients.end());
  std::string text(kDomain);
  appendDelimited(text, seal.keyId);
  appendDelimited(text, std::to_string(seal.expiry));
  appendDelimited(text, std::to_string(seal.passes));
  appendDelimited(text, mail.rules);
  appendDelimited(text, mail.type);
  // SMTP knows no sender that was never set: it becomes the null sender on the way.
  appendDelimited(text, mail.envelope.sender.value_or(std::string()));
  appendDelimited(text, std::to_string(recipients.size()));
  for (const std::string_view recipient : recipients) appendDelimited(text, recipient);
  text.append(reinterpret_cast<const char*>(mail.body.data()), mail.body.size());
  return toHex(hmacSha256(key.secret, text));
}

bool isSealedBy(const SealKey& key, const ReprocessSeal& seal, const SealedMail& mail) {
  return key.id == seal.keyId && equalInConstantTime(sealMac(key, seal, mail), seal.mac);
}

AdapterError makeSeal(const SealKeys& keys, const SealedMail& mail, unsigned int passes,
                      std::int64_t now, std::string& value) {
  if (passes >= kMaxPasses) return AdapterError::TooManyPasses;
  SealKey key;
  const AdapterError error = keys.signingKey(now, key);
  if (error != AdapterError::None) return error;
  ReprocessSeal seal;
  seal.keyId = key.id;
  seal.expiry = now + kSealSeconds;
  seal.passes = passes + 1;
  seal.mac = sealMac(key, seal, mail);
  value = writeSeal(seal);
  return AdapterError::None;
}

}  // namespace host::delivery
