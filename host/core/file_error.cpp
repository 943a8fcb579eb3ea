#include "host/core/file_error.h"

#include <cerrno>

namespace host::core {

FileError fileErrorOf(int errnoValue) {
  switch (errnoValue) {
    case 0:
      return FileError::None;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return FileError::DiskFull;
    case EROFS:
      return FileError::ReadOnly;
    case ENOENT:
    case ENOTDIR:
    case ELOOP:  // a symbolic link where a folder of ours should be
      return FileError::MissingFolder;
    case EACCES:
    case EPERM:
      return FileError::Permission;
    case EEXIST:
      return FileError::Exists;
    case ENAMETOOLONG:
      return FileError::NameTooLong;
    case EMFILE:
    case ENFILE:
      return FileError::TooManyFiles;
    default:
      return FileError::InputOutput;
  }
}

const char* fileErrorText(FileError error) {
  switch (error) {
    case FileError::None:
      return "no error";
    case FileError::DiskFull:
      return "no space left (disk, quota or file size limit)";
    case FileError::ReadOnly:
      return "the file system is read-only";
    case FileError::MissingFolder:
      return "the folder does not exist, or is no folder";
    case FileError::Permission:
      return "permission denied";
    case FileError::Exists:
      return "the file exists already";
    case FileError::NameTooLong:
      return "the file name is too long";
    case FileError::TooManyFiles:
      return "too many open files";
    case FileError::InputOutput:
      break;
  }
  return "input/output error";
}

}  // namespace host::core
