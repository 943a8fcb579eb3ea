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

  /// The first \p size bytes of an open file, mapped: they take no memory that the system cannot
  /// have back. For a file that nobody else can reach, as one cut short would kill the process.
  /// \param file   stays the caller's, who may close it
  /// \param error  receives the reason on failure.
  /// \return null on failure.
  static std::shared_ptr<const Buffer> mapFile(int file, std::size_t size, std::string& error);

  std::string_view view() const { return view_; }
  const char* data() const { return view_.data(); }
  std::size_t size() const { return view_.size(); }

  explicit Buffer(std::string&& bytes) : bytes_(std::move(bytes)), view_(bytes_) {}
  ~Buffer();
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

 private:
  struct Mapping {
    void* begin;
    std::size_t size;
  };
  explicit Buffer(const Mapping& mapping);

  const std::string bytes_;
  const std::string_view view_;
  void* mapped_ = nullptr;
};

}  // namespace host::message
