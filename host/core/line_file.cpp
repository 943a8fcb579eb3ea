#include "host/core/line_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace host::core {

namespace {

// Whether the last line of a file of `size` bytes lacks its line break.
bool endsInsideLine(int file, off_t size) {
  char last = '\n';
  return size > 0 && ::pread(file, &last, 1, size - 1) == 1 && last != '\n';
}

int writeDurably(const Folder& folder, int file, const std::string& text, bool isNew,
                 Durability durability) {
  FileOps& ops = folder.ops();
  const int written = ops.writeAll(file, text.data(), text.size());
  if (written < 0 || durability == Durability::Buffered) return written;
  const int synced = ops.sync(file);
  if (synced < 0 || !isNew) return synced;
  return ops.sync(folder.descriptor());
}

}  // namespace

FileError appendLine(const Folder& folder, const std::string& name, std::string_view line,
                     Durability durability) {
  std::string text;
  text.reserve(line.size() + 2);
  FileOps& ops = folder.ops();
  const Descriptor file(ops, ops.openFile(folder.descriptor(), name, O_RDWR | O_APPEND | O_CREAT));
  if (!file.isOpen()) return fileErrorOf(-file.get());
  const int locked = ops.lock(file.get(), true);
  if (locked < 0) return fileErrorOf(-locked);
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) return fileErrorOf(errno);
  if (endsInsideLine(file.get(), status.st_size)) text += '\n';
  text += line;
  text += '\n';
  // An empty file may be one whose first writer failed before its name was durable.
  const int written = writeDurably(folder, file.get(), text, status.st_size == 0, durability);
  if (written == 0) return FileError::None;
  ops.truncate(file.get(), status.st_size);
  return fileErrorOf(-written);
}

}  // namespace host::core
