#include "host/delivery/mail_feed.h"

#include <algorithm>
#include <cstring>

namespace host::delivery {

namespace {

bool hasHighByte(std::string_view bytes) {
  unsigned char all = 0;
  for (const char c : bytes) all = static_cast<unsigned char>(all | static_cast<unsigned char>(c));
  return all >= 0x80;
}

}  // namespace

MailFeed::MailFeed(const MailSource& source)
    : source_(source), buffer_(std::make_unique<char[]>(kBufferBytes)) {}

bool MailFeed::survey() {
  buffered_ = true;
  if (!source_.writeTo(*this)) return false;
  complete_ = buffered_;
  return true;
}

void MailFeed::surveyPiece(std::string_view piece) {
  hasEightBit_ = hasEightBit_ || hasHighByte(piece);
  while (!piece.empty()) {
    if (kBufferBytes - end_ < 2) {
      end_ = 0;
      buffered_ = false;
    }
    const std::size_t encoded = encoder_.encode(piece, buffer_.get() + end_, kBufferBytes - end_);
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
  const bool written = source_.writeTo(*this);
  drain_ = nullptr;
  complete_ = written;
  broken_ = !written;
  return written;
}

bool MailFeed::write(const char* data, std::size_t size) {
  std::string_view piece(data, size);
  if (drain_ == nullptr) {
    surveyPiece(piece);
    return true;
  }
  while (!piece.empty()) {
    if (kBufferBytes - end_ < 2) {
      if (!(*drain_)()) return false;
      begin_ = end_ = 0;
    }
    end_ += encoder_.encode(piece, buffer_.get() + end_, kBufferBytes - end_);
  }
  return true;
}

std::size_t MailFeed::read(char* out, std::size_t room) {
  const std::size_t size = std::min(room, end_ - begin_);
  std::memcpy(out, buffer_.get() + begin_, size);
  begin_ += size;
  return size;
}

}  // namespace host::delivery
