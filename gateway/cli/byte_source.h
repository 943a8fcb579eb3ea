// Bytes read one after the other from a file descriptor.
#pragma once

#include <cstddef>
#include <string>

namespace gateway::cli {

/// A source that is read once, front to back.
class ByteSource {
 public:
  virtual ~ByteSource() = default;

  /// Appends up to \p size bytes to \p out. \return the number of bytes; 0 at the end and on a
  /// fault, which `error` then names.
  virtual std::size_t read(std::string& out, std::size_t size) = 0;
  /// Empty while nothing went wrong.
  virtual const std::string& error() const = 0;
};

/// An open file.
class FileSource final : public ByteSource {
 public:
  /// Opens \p path; a fault shows in `error`.
  explicit FileSource(const std::string& path);
  /// Reads \p descriptor, which stays the caller's.
  explicit FileSource(int descriptor) : descriptor_(descriptor), owned_(false) {}
  ~FileSource() override;
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;

  std::size_t read(std::string& out, std::size_t size) override;
  const std::string& error() const override { return error_; }

 private:
  int descriptor_;
  bool owned_;
  std::string error_;
};

}  // namespace gateway::cli
