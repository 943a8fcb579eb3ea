#include "library/actions/modification/charset_converter.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace library {

namespace {

constexpr std::size_t kScratchBytes = 256;

}  // namespace

std::optional<CharsetConverter> CharsetConverter::open(const char* charset) {
  UErrorCode error = U_ZERO_ERROR;
  Handle handle(ucnv_open(charset, &error));
  if (U_FAILURE(error) || handle == nullptr) {
    return std::nullopt;
  }
  return CharsetConverter(std::move(handle));
}

std::size_t CharsetConverter::maxBytesPerUnit() const {
  return static_cast<std::size_t>(ucnv_getMaxCharSize(handle_.get()));
}

bool CharsetConverter::decode(std::string_view bytes, std::u16string& units) {
  const auto size = static_cast<std::int32_t>(bytes.size());
  // Hardly any charset gives more units than it has bytes; for those that do there is a second try.
  units.resize(bytes.size() + 1);
  for (int attempt = 0; attempt < 2; ++attempt) {
    UErrorCode error = U_ZERO_ERROR;
    const std::int32_t length =
        ucnv_toUChars(handle_.get(), units.data(), static_cast<std::int32_t>(units.size()),
                      bytes.data(), size, &error);
    if (U_SUCCESS(error)) {
      units.resize(static_cast<std::size_t>(length));
      return true;
    }
    if (error != U_BUFFER_OVERFLOW_ERROR) {
      break;
    }
    units.resize(static_cast<std::size_t>(length) + 1);
  }
  units.clear();
  return false;
}

std::optional<std::size_t> CharsetConverter::encode(std::u16string_view units,
                                                    std::span<char> buffer) {
  UErrorCode error = U_ZERO_ERROR;
  const std::int32_t length =
      ucnv_fromUChars(handle_.get(), buffer.data(), static_cast<std::int32_t>(buffer.size()),
                      units.data(), static_cast<std::int32_t>(units.size()), &error);
  if (U_FAILURE(error)) {
    return std::nullopt;
  }
  return static_cast<std::size_t>(length);
}

bool CharsetConverter::continues() const {
  const UConverterType type = ucnv_getType(handle_.get());
  return type != UCNV_SCSU && type != UCNV_COMPOUND_TEXT &&
         (type < UCNV_LMBCS_1 || type > UCNV_LMBCS_LAST);
}

void CharsetConverter::restart() { ucnv_resetFromUnicode(handle_.get()); }

std::optional<std::size_t> CharsetConverter::advance(std::u16string_view& units,
                                                     std::size_t enough) {
  std::size_t bytes = 0;
  bool full = true;
  while (full) {
    // Past `enough` only what the converter holds back of units that it has read is of interest.
    std::u16string_view nothing = units.substr(0, 0);
    const bool more = bytes < enough;
    const auto written = more ? write(units, enough - bytes, false, full)
                              : write(nothing, kScratchBytes, false, full);
    if (!written) {
      return std::nullopt;
    }
    bytes += *written;
  }
  return bytes;
}

std::optional<std::size_t> CharsetConverter::finish(std::u16string_view units) {
  std::size_t bytes = 0;
  bool full = true;
  while (full) {
    const auto written = write(units, kScratchBytes, true, full);
    if (!written) {
      return std::nullopt;
    }
    bytes += *written;
  }
  return bytes;
}

std::size_t CharsetConverter::heldBack() const {
  UErrorCode error = U_ZERO_ERROR;
  const std::int32_t count = ucnv_fromUCountPending(handle_.get(), &error);
  return count > 0 ? static_cast<std::size_t>(count) : 0;
}

std::optional<CharsetConverter> CharsetConverter::copy() const {
  UErrorCode error = U_ZERO_ERROR;
  Handle handle(ucnv_clone(handle_.get(), &error));
  if (U_FAILURE(error) || handle == nullptr) {
    return std::nullopt;
  }
  return CharsetConverter(std::move(handle));
}

// Encodes units from the front of `units` until they are used up or, with `full` set, the room is.
std::optional<std::size_t> CharsetConverter::write(std::u16string_view& units, std::size_t room,
                                                   bool last, bool& full) {
  char scratch[kScratchBytes] = {};
  char* target = scratch;
  const char16_t* source = units.data();
  UErrorCode error = U_ZERO_ERROR;
  ucnv_fromUnicode(handle_.get(), &target, scratch + std::min(room, kScratchBytes), &source,
                   units.data() + units.size(), nullptr, last ? 1 : 0, &error);
  full = error == U_BUFFER_OVERFLOW_ERROR;
  if (U_FAILURE(error) && !full) {
    return std::nullopt;
  }
  units.remove_prefix(static_cast<std::size_t>(source - units.data()));
  return static_cast<std::size_t>(target - scratch);
}

}  // namespace library
