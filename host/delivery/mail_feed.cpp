#include "host/delivery/mail_feed.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace host::delivery {

namespace {

// Eight bytes at a time: every message passes here.
bool hasHighByte(std::string_view bytes) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080;
  std::uint64_t all = 0;
  while (bytes.size() >= sizeof all) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes.data(), sizeof word);
    all |= word;
    bytes.remove_prefix(sizeof word);
  }
  for (const char c : bytes) all |= static_cast<unsigned char>(c);
  return (all & kHighBits) != 0;
}

}  // namespace

bool MailFeed::survey() {
  buffered_ = true;
  if (!source_.writeTo(*this)) return false;
  while (!encoder_.isFinished()) {
    makeRoomInSurvey();
    const std::size_t encoded = encoder_.finish(buffer_ + end_, kBufferBytes - end_);
    end_ += encoded;
    wireBytes_ += encoded;
  }
  complete_ = buffered_;
  return true;
}

void MailFeed::makeRoomInSurvey() {
  if (kBufferBytes - end_ >= 2) return;
  end_ = 0;
  buffered_ = false;
}

void MailFeed::surveyPiece(std::string_view piece) {
  hasEightBit_ = hasEightBit_ || hasHighByte(piece);
  while (!piece.empty()) {
    makeRoomInSurvey();
    const std::size_t encoded = encoder_.encode(piece, buffer_ + end_, kBufferBytes - end_);
    end_ += encoded;
    wireBytes_ += encoded;
  }
}

void MailFeed::rewind() {
  begin_ = 0;
  if (buffered_) return;
  end_ = 0;
  encoder_ = {};
  complete_ = false;
}

bool MailFeed::stream(const std::function<bool()>& drain) {
  drain_ = &drain;
  streamed_ = 0;
  bool written = source_.writeTo(*this);
  while (written && !encoder_.isFinished()) {
    written = makeRoomInStream();
    if (!written) break;
    const std::size_t encoded = encoder_.finish(buffer_ + end_, kBufferBytes - end_);
    end_ += encoded;
    streamed_ += encoded;
  }
  written = written && streamed_ == wireBytes_;
  drain_ = nullptr;
  complete_ = written;
  broken_ = !written;
  return written;
}

bool MailFeed::makeRoomInStream() {
  if (kBufferBytes - end_ >= 2) return true;
  if (!(*drain_)()) return false;
  std::memmove(buffer_, buffer_ + begin_, end_ - begin_);
  end_ -= begin_;
  begin_ = 0;
  return true;
}

bool MailFeed::write(const char* data, std::size_t size) {
  std::string_view piece(data, size);
  if (drain_ == nullptr) {
    surveyPiece(piece);
    return true;
  }
  while (!piece.empty()) {
    if (!makeRoomInStream()) return false;
    const std::size_t encoded = encoder_.encode(piece, buffer_ + end_, kBufferBytes - end_);
    end_ += encoded;
    streamed_ += encoded;
    if (streamed_ > wireBytes_) return false;
  }
  return true;
}

std::size_t MailFeed::read(char* out, std::size_t room) {
  const std::size_t size = std::min(room, readable());
  std::memcpy(out, buffer_ + begin_, size);
  begin_ += size;
  return size;
}

}  // namespace host::delivery
