// Receivers of bytes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "library/platform/ov_msg_mail_message.h"

namespace host::message {

/// Appends to a string; refuses what goes beyond a limit.
class StringSink final : public OvMsgSink {
 public:
  explicit StringSink(std::string& out, std::size_t limit = std::string_view::npos)
      : out_(out), limit_(limit) {}
  bool write(const char* data, std::size_t size) override {
    out_.append(data, std::min(size, limit_ - out_.size()));
    return out_.size() < limit_;
  }

 private:
  std::string& out_;
  std::size_t limit_;
};

/// Counts.
class CountingSink final : public OvMsgSink {
 public:
  bool write(const char*, std::size_t size) override {
    count_ += size;
    return true;
  }
  std::size_t count() const { return count_; }

 private:
  std::size_t count_ = 0;
};

}  // namespace host::message
