// Text between a charset's bytes and UTF-16.
#pragma once

#include <unicode/ucnv.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace library {

/// One converter of ICU. Characters that the charset does not have, and bytes that are none of it,
/// become its substitution; that is no failure. Used by one thread at a time.
class CharsetConverter {
 public:
  /// \return none when ICU has no converter by that name.
  static std::optional<CharsetConverter> open(const char* charset);

  /// The most bytes that a code unit takes, changes of state included.
  std::size_t maxBytesPerUnit() const;

  /// Decodes a whole text. \return false if it fails; \p units is then empty.
  bool decode(std::string_view bytes, std::u16string& units);

  /// Encodes a whole text into \p buffer.
  /// \return the bytes written; none when they do not fit, or the conversion fails.
  std::optional<std::size_t> encode(std::u16string_view units, std::span<char> buffer);

  // A text that is encoded bit by bit. Nothing is kept of it but the number of its bytes.

  /// Whether `copy`, `advance` and `finish` give what `encode` gives for the text as a whole.
  /// Two encoders look at the unit ahead or forget what they wrote last, and so depend on where a
  /// text is split (SCSU, LMBCS); the copy of a third one crashes (X11 compound text).
  bool continues() const;

  /// Begins a text.
  void restart();
  /// Encodes units from the front of \p units, and takes those away, until they are used up or give
  /// \p enough bytes. \return the bytes that they give, which may be a few more; none on failure.
  std::optional<std::size_t> advance(std::u16string_view& units, std::size_t enough);
  /// Encodes \p units as the end of the text. \return the bytes that they give; none on failure.
  std::optional<std::size_t> finish(std::u16string_view units);
  /// How many of the units read it holds back, because they might begin a sequence with a code of
  /// its own; 19 at most.
  std::size_t heldBack() const;
  /// A second converter in the same state; none when there is no memory.
  std::optional<CharsetConverter> copy() const;

 private:
  struct Closer {
    void operator()(UConverter* converter) const { ucnv_close(converter); }
  };
  using Handle = std::unique_ptr<UConverter, Closer>;

  explicit CharsetConverter(Handle handle) : handle_(std::move(handle)) {}
  std::optional<std::size_t> write(std::u16string_view& units, std::size_t room, bool last,
                                   bool& full);

  Handle handle_;
};

}  // namespace library
