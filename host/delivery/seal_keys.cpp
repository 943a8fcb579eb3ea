#include "host/delivery/seal_keys.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

#include "host/core/atomic_file.h"
#include "host/core/folder.h"
#include "host/core/line_file.h"
#include "host/delivery/adapter_guard.h"
#include "host/delivery/digest.h"

namespace host::delivery {

namespace {

constexpr std::string_view kWord = "seal-key";
constexpr std::size_t kIdBytes = 8;
constexpr std::size_t kSecretBytes = 32;
constexpr std::size_t kMaxFileBytes = std::size_t{1} << 20;

bool isHex(std::string_view text, std::size_t bytes) {
  return text.size() == 2 * bytes && std::all_of(text.begin(), text.end(), [](char c) {
           return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
         });
}

char digitOf(char c) { return static_cast<char>(c <= '9' ? c - '0' : c - 'a' + 10); }

std::string fromHex(std::string_view hex) {
  std::string bytes;
  for (std::size_t at = 0; at + 1 < hex.size(); at += 2) {
    bytes += static_cast<char>(digitOf(hex[at]) * 16 + digitOf(hex[at + 1]));
  }
  return bytes;
}

std::optional<SealKey> parseKey(std::string_view line) {
  std::array<std::string_view, 4> words;
  for (std::string_view& word : words) {
    word = line.substr(0, line.find(' '));
    line.remove_prefix(std::min(line.size(), word.size() + 1));
  }
  SealKey key;
  const char* last = words[2].data() + words[2].size();
  const auto [end, fault] = std::from_chars(words[2].data(), last, key.validFrom);
  const bool good = line.empty() && words[0] == kWord && isSealKeyId(words[1]) &&
                    fault == std::errc() && end == last && isHex(words[3], kSecretBytes);
  if (!good) return std::nullopt;
  key.id = words[1];
  key.secret = fromHex(words[3]);
  return key;
}

std::string newKeyLine(std::int64_t validFrom) {
  return std::string(kWord) + " " + toHex(randomBytes(kIdBytes)) + " " + std::to_string(validFrom) +
         " " + toHex(randomBytes(kSecretBytes));
}

}  // namespace

bool isSealKeyId(std::string_view id) { return isHex(id, kIdBytes); }

bool parseSealKeys(std::string_view text, std::vector<SealKey>& keys) {
  std::vector<SealKey> found;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    if (line.empty() || line[0] == '#') continue;
    std::optional<SealKey> key = parseKey(line);
    if (!key) return false;
    found.push_back(std::move(*key));
  }
  keys.swap(found);
  return true;
}

SealKeys::SealKeys(std::string path, core::FileOps& ops)
    : path_(std::move(path)),
      folder_(path_.substr(0, path_.rfind('/') + 1)),
      name_(path_.substr(path_.rfind('/') + 1)),
      ops_(ops) {
  if (folder_.empty()) folder_ = "./";
}

AdapterError SealKeys::read(std::vector<SealKey>& keys) const {
  core::Folder folder(ops_);
  core::FileError error = folder.open(folder_, false);
  std::string text;
  if (error == core::FileError::None) error = folder.read(name_, kMaxFileBytes, text);
  if (error == core::FileError::MissingFolder) return AdapterError::NotFound;
  if (error != core::FileError::None) return AdapterError::KeyUnavailable;
  return parseSealKeys(text, keys) ? AdapterError::None : AdapterError::KeyUnavailable;
}

AdapterError SealKeys::create(std::int64_t now) const {
  core::Folder folder(ops_);
  if (folder.open(folder_, true) != core::FileError::None) return AdapterError::KeyUnavailable;
  const std::string line = newKeyLine(now) + "\n";
  core::AtomicFile file(folder, core::Durability::Flushed);
  core::FileError error = file.create();
  if (error == core::FileError::None) error = file.write(line.data(), line.size());
  if (error == core::FileError::None) error = file.commit(name_);
  // Taken: another gateway was quicker, and its key serves.
  const bool there = error == core::FileError::None || error == core::FileError::Exists;
  return there ? AdapterError::None : AdapterError::KeyUnavailable;
}

AdapterError SealKeys::signingKey(std::int64_t now, SealKey& key) const {
  return guardedOutcome([&] {
    std::vector<SealKey> keys;
    AdapterError error = read(keys);
    if (error == AdapterError::NotFound) {
      error = create(now);
      if (error == AdapterError::None) error = read(keys);
    }
    if (error != AdapterError::None) return AdapterError::KeyUnavailable;
    std::erase_if(keys, [&](const SealKey& other) { return other.validFrom > now; });
    if (keys.empty()) return AdapterError::KeyUnavailable;
    key = *std::max_element(
        keys.begin(), keys.end(),
        [](const SealKey& left, const SealKey& right) { return left.validFrom < right.validFrom; });
    return AdapterError::None;
  });
}

AdapterError SealKeys::findKey(std::string_view id, SealKey& key) const {
  return guardedOutcome([&] {
    std::vector<SealKey> keys;
    const AdapterError error = read(keys);
    if (error != AdapterError::None) return error;
    const auto found = std::find_if(keys.begin(), keys.end(),
                                    [&](const SealKey& other) { return other.id == id; });
    if (found == keys.end()) return AdapterError::NotFound;
    key = *found;
    return AdapterError::None;
  });
}

AdapterError SealKeys::addKey(std::int64_t validFrom) const {
  return guardedOutcome([&] {
    std::vector<SealKey> keys;
    const AdapterError error = read(keys);
    if (error == AdapterError::NotFound) return create(validFrom);
    if (error != AdapterError::None) return error;
    core::Folder folder(ops_);
    if (folder.open(folder_, false) != core::FileError::None) return AdapterError::KeyUnavailable;
    return adapterErrorOf(
        core::appendLine(folder, name_, newKeyLine(validFrom), core::Durability::Flushed));
  });
}

}  // namespace host::delivery
