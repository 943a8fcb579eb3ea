#include "tests/unit/library/actions/modification/support/long_lines_oracle.h"

#include <unicode/schriter.h>
#include <unicode/ucnv.h>
#include <unicode/unistr.h>

#include <climits>
#include <cstdint>
#include <cstring>

namespace oracle {
namespace {

// The converter with the operations in which the steps are written.
class UnicodeConverter {
 public:
  UnicodeConverter(const char* name, UErrorCode& error) : converter_(ucnv_open(name, &error)) {}
  ~UnicodeConverter() { ucnv_close(converter_); }
  UnicodeConverter(const UnicodeConverter&) = delete;
  UnicodeConverter& operator=(const UnicodeConverter&) = delete;

  void toUnicodeString(icu::UnicodeString& target, const char* source, std::int32_t length,
                       UErrorCode& error) {
    // Room for any text, since decoding it a second time is not always decoding it alike.
    const std::int32_t room = 4 * length + 16;
    const std::int32_t units =
        ucnv_toUChars(converter_, target.getBuffer(room), room, source, length, &error);
    target.releaseBuffer(units);
  }
  void fromUnicodeString(char* target, std::int32_t& length, const icu::UnicodeString& source,
                         UErrorCode& error) {
    const std::int32_t capacity = length;
    length =
        ucnv_fromUChars(converter_, target, capacity, source.getBuffer(), source.length(), &error);
  }
  std::int8_t getMaxBytesPerChar() const { return ucnv_getMaxCharSize(converter_); }

 private:
  UConverter* converter_;
};

std::string logged(const char* what, std::int32_t bytes) {
  return std::string("Long line ") + what + " '" + std::to_string(bytes) + "'";
}

}  // namespace

bool modifyIfHasLimitLine(std::string& text, const char* charset, int limit,
                          std::vector<std::string>& log) {
  // A limit of 0 or below is outside the steps.
  if (limit <= 0) {
    return false;
  }
  // 1.
  if (text.empty() || charset == nullptr) {
    return false;
  }
  // 2.
  UErrorCode error = U_ZERO_ERROR;
  UnicodeConverter utf8("utf-8", error);
  UnicodeConverter destination(charset, error);
  if (error > 0) {
    return false;
  }
  // 3.
  icu::UnicodeString lineBreak;
  utf8.toUnicodeString(lineBreak, "\r\n", 2, error);
  const std::int32_t breakRoom = destination.getMaxBytesPerChar() * lineBreak.length();
  std::string breakBuffer(static_cast<std::size_t>(breakRoom) + 1, '\0');
  std::int32_t breakLength = breakRoom;
  destination.fromUnicodeString(breakBuffer.data(), breakLength, lineBreak, error);
  if (error > 0) {
    return false;
  }
  const std::string breakBytes(breakBuffer, 0, static_cast<std::size_t>(breakLength));
  // 4.
  icu::UnicodeString whole;
  utf8.toUnicodeString(whole, text.data(), static_cast<std::int32_t>(text.size()), error);
  if (error > 0) {
    return false;
  }
  const std::int32_t size = whole.length() * destination.getMaxBytesPerChar();
  const std::int32_t capacity = size / limit * breakLength + size;
  std::string buffer(static_cast<std::size_t>(capacity) + 1, '\0');
  std::int32_t length = capacity;
  destination.fromUnicodeString(buffer.data(), length, whole, error);
  if (error > 0) {
    return false;
  }
  const std::string destinationText(buffer.c_str());
  if (destinationText.empty()) {
    return false;
  }
  // 5.
  std::string output;
  bool changed = false;
  std::size_t position = 0;
  for (;;) {
    // a.
    const std::size_t found = destinationText.find(breakBytes, position);
    const std::string line =
        found == std::string::npos
            ? destinationText.substr(position)
            : destinationText.substr(position, found + breakBytes.size() - position);
    if (static_cast<std::int32_t>(line.size()) <= breakLength + limit) {
      // b.
      output += line;
    } else {
      // c.
      log.push_back(logged("detected", static_cast<std::int32_t>(line.size())));
      icu::UnicodeString unicodeLine;
      destination.toUnicodeString(unicodeLine, line.data(), static_cast<std::int32_t>(line.size()),
                                  error);
      if (error > 0) {
        return false;
      }
      icu::UnicodeString piece;
      icu::UnicodeString probe = piece;
      icu::StringCharacterIterator walk(unicodeLine);
      while (walk.hasNext()) {
        const char16_t unit = walk.nextPostInc();
        probe.replace(probe.length(), 0, unit);
        probe.replace(probe.length(), 0, lineBreak);
        std::int32_t probeLength = capacity;
        destination.fromUnicodeString(buffer.data(), probeLength, probe, error);
        if (error > 0) {
          return false;
        }
        if (probeLength > breakLength + limit) {
          piece.replace(piece.length(), 0, lineBreak);
          std::int32_t pieceLength = capacity;
          destination.fromUnicodeString(buffer.data(), pieceLength, piece, error);
          if (error > 0) {
            return false;
          }
          output += buffer.c_str();
          log.push_back(logged("divided", static_cast<std::int32_t>(std::strlen(buffer.c_str()))));
          piece.remove();
          changed = true;
        }
        piece.replace(piece.length(), 0, unit);
        probe = piece;
      }
      if (!piece.isEmpty()) {
        std::int32_t pieceLength = capacity;
        destination.fromUnicodeString(buffer.data(), pieceLength, piece, error);
        if (error > 0) {
          return false;
        }
        output += buffer.c_str();
        piece.remove();
        probe.remove();
      }
    }
    // d. and e.
    if (found == std::string::npos || found + breakBytes.size() >= destinationText.size()) {
      break;
    }
    position = found + breakBytes.size();
  }
  // 6.
  if (!changed) {
    return false;
  }
  // 7.
  icu::UnicodeString result;
  destination.toUnicodeString(result, output.data(), static_cast<std::int32_t>(output.size()),
                              error);
  if (error > 0) {
    return false;
  }
  std::int32_t resultLength = capacity;
  utf8.fromUnicodeString(buffer.data(), resultLength, result, error);
  if (error > 0) {
    return false;
  }
  text = buffer.c_str();
  return true;
}

}  // namespace oracle
