#include "gateway/milter/instance_lock.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/core/folder.h"

namespace gateway::milter {
namespace {

using host::core::Descriptor;
using host::core::FileError;

constexpr char kLockFile[] = "daemon.lock";
constexpr std::size_t kMaxNumberBytes = 32;

/// Who holds the lock, as the file says: it may be about to say so.
std::string holderOf(host::core::FileOps& ops, int file) {
  std::string text;
  if (ops.readAll(file, kMaxNumberBytes, text) < 0) text.clear();
  text = text.substr(0, text.find('\n'));
  const bool isNumber = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
  return isNumber ? "another kavi-milter, process " + text + "," : "another kavi-milter";
}

}  // namespace

std::string InstanceLock::take(const std::string& folder) {
  const std::string path = folder + "/" + kLockFile;
  host::core::Folder state(ops_);
  if (const FileError error = state.open(folder, false); error != FileError::None) {
    return folder + ": " + host::core::fileErrorText(error);
  }
  Descriptor file(ops_, ops_.openFile(state.descriptor(), kLockFile, O_RDWR | O_CREAT));
  int code = file.isOpen() ? ops_.lock(file.get(), false) : file.get();
  if (code == -EWOULDBLOCK) {
    return folder + ": " + holderOf(ops_, file.get()) +
           " serves with this state folder already (end it first, or give this one a state_folder "
           "and a socket of its own)";
  }
  const std::string number = std::to_string(::getpid()) + "\n";
  if (code >= 0) code = ops_.truncate(file.get(), 0);
  if (code >= 0) code = ops_.writeAll(file.get(), number.data(), number.size());
  if (code < 0) return path + ": " + std::strerror(-code);
  file_ = std::move(file);
  return {};
}

bool isServed(const std::string& path) {
  sockaddr_un address{};
  if (path.empty() || path.size() >= sizeof(address.sun_path)) return false;
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, path.size());
  host::core::FileOps& ops = host::core::FileOps::system();
  const Descriptor probe(ops, ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!probe.isOpen()) return false;
  const auto* target = reinterpret_cast<const sockaddr*>(&address);
  // With a full queue there is somebody whose queue it is.
  return ::connect(probe.get(), target, sizeof(address)) == 0 || errno == EAGAIN;
}

}  // namespace gateway::milter
