// A message on its way into a connection.
#pragma once

#include <cstddef>
#include <functional>
#include <string_view>

#include "host/delivery/line_ends.h"
#include "host/delivery/mail_source.h"

namespace host::delivery {

/// Turns a message that writes itself out into one that can be read piece by piece, with CR LF
/// line breaks, through a buffer of fixed size. First `survey`, then read; a message that does not
/// fit the buffer is written out a second time, by `stream`, which calls back whenever the buffer
/// must be emptied.
class MailFeed final : public OvMsgSink {
 public:
  static constexpr std::size_t kBufferBytes = std::size_t{64} << 10;

  /// \param buffer  kBufferBytes, which nobody else uses meanwhile
  MailFeed(const MailSource& source, char* buffer) : source_(source), buffer_(buffer) {}

  /// Learns the size and whether there are bytes above 127. \return false if it cannot be written.
  bool survey();
  std::size_t wireBytes() const { return wireBytes_; }
  bool hasEightBit() const { return hasEightBit_; }

  /// To be called before the message is read, each time. The survey stays.
  void rewind();
  /// Whether everything is in the buffer, so that `stream` is not needed.
  bool isBuffered() const { return buffered_; }

  /// Writes the message through the buffer. \param drain  makes the reader take bytes until the
  /// buffer is empty; false stops. \return whether all of it was written.
  bool stream(const std::function<bool()>& drain);

  /// For the reader: takes bytes, at most \p room. 0 when there are none now. The last byte is not
  /// given out before the message is known to be whole.
  std::size_t read(char* out, std::size_t room);
  bool isEmpty() const { return readable() == 0; }
  /// Whether nothing will come behind what is in the buffer.
  bool isComplete() const { return complete_; }
  /// Whether the message could not be written as it was surveyed.
  bool isBroken() const { return broken_; }

  bool write(const char* data, std::size_t size) override;

 private:
  void surveyPiece(std::string_view piece);
  void makeRoomInSurvey();
  bool makeRoomInStream();
  std::size_t readable() const {
    const std::size_t held = end_ - begin_;
    return complete_ || held == 0 ? held : held - 1;
  }

  const MailSource& source_;
  char* buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  CrLfEncoder encoder_;
  const std::function<bool()>* drain_ = nullptr;  ///< while streaming
  std::size_t wireBytes_ = 0;
  std::size_t streamed_ = 0;
  bool hasEightBit_ = false;
  bool buffered_ = false;
  bool complete_ = false;
  bool broken_ = false;
};

}  // namespace host::delivery
