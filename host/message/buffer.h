// Immutable bytes that messages, their copies and their parts share.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "library/platform/api.h"

namespace host::message {

/// A run of bytes that never changes once made. Held by `std::shared_ptr<const Buffer>`; may be
/// read by several threads at once.
class KAVI_API Buffer {
 public:
  /// Takes \p bytes over without copying them.
  static std::shared_ptr<const Buffer> adopt(std::string&& bytes);
  static std::shared_ptr<const Buffer> copyOf(std::string_view bytes);
  /// The content of the file at \p path.
  /// \param error  receives the reason on failure.
  /// \return null on failure.
  static std::shared_ptr<const Buffer> readFile(const std::string& path, std::string& error);

  std::string_view view() const { return bytes_; }
  const char* data() const { return bytes_.data(); }
  std::size_t size() const { return bytes_.size(); }

  explicit Buffer(std::string&& bytes) : bytes_(std::move(bytes)) {}
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

 private:
  const std::string bytes_;
};

}  // namespace host::message
