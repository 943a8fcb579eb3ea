// The file operations that durable storage is made of.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "library/platform/api.h"

namespace host::core {

/// The system calls behind AtomicFile, Folder and LineFile; tests put one in their place that
/// fails where they want. Each does what the system call of its name does and answers 0 (a
/// descriptor, a count) or the negative errno value. Interrupted calls are repeated. Safe from
/// several threads.
class KAVI_API FileOps {
 public:
  virtual ~FileOps() = default;

  /// Opens the folder \p path; with \p parent a name in that folder, which may then be no link.
  virtual int openFolder(const std::string& path, int parent = -1);
  virtual int makeFolder(const std::string& path, int parent = -1);
  /// \param flags  as of open(2); a new file gets mode 0600.
  virtual int openFile(int folder, const std::string& name, int flags);
  virtual ssize_t read(int file, char* data, std::size_t size);
  virtual ssize_t write(int file, const char* data, std::size_t size);
  /// Flushes a file, or a folder's entries, to the device.
  virtual int sync(int descriptor);
  virtual int close(int descriptor);
  /// Renames within a folder; a \p to that exists makes it fail with -EEXIST.
  virtual int rename(int folder, const std::string& from, const std::string& to);
  virtual int unlink(int folder, const std::string& name);
  virtual int truncate(int file, off_t size);
  /// Takes the advisory lock of an open file. \param wait  false answers -EWOULDBLOCK if it is
  /// held.
  virtual int lock(int file, bool wait);

  /// Reads to the end of \p file into \p bytes; a file of more than \p limit bytes fails with
  /// -EFBIG. \return 0 or the negative errno value.
  int readAll(int file, std::size_t limit, std::string& bytes);
  /// Writes all of it. \return 0 or the negative errno value; then a part may be written.
  int writeAll(int file, const char* data, std::size_t size);

  /// The real ones.
  static FileOps& system();
};

/// A descriptor that is closed with its owner.
class KAVI_API Descriptor {
 public:
  Descriptor() = default;
  Descriptor(FileOps& ops, int descriptor) : ops_(&ops), descriptor_(descriptor) {}
  ~Descriptor() { reset(); }
  Descriptor(Descriptor&& other) noexcept : ops_(other.ops_), descriptor_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept;

  bool isOpen() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }
  int release();
  void reset();

 private:
  FileOps* ops_ = nullptr;
  int descriptor_ = -1;
};

}  // namespace host::core
