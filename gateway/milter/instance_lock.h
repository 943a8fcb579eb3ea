// One daemon to a state folder, and one to a socket.
#pragma once

#include <string>

#include "host/core/file_ops.h"

namespace gateway::milter {

/// The right to serve with a state folder. It is held as long as the object lives, and ends with
/// the process, however that ends: the lock is the kernel's, the file stays.
class InstanceLock {
 public:
  explicit InstanceLock(host::core::FileOps& ops = host::core::FileOps::system()) : ops_(ops) {}

  /// Takes it. \param folder  the state folder, which is there
  /// \return an error text, when another process has it or the file cannot be used: who, and what
  ///   to do. Empty for success.
  std::string take(const std::string& folder);

 private:
  host::core::FileOps& ops_;
  host::core::Descriptor file_;
};

/// Whether somebody serves on the Unix socket \p path. One that a process left behind, a missing
/// one, and whatever else lies there, is served by nobody.
bool isServed(const std::string& path);

}  // namespace gateway::milter
