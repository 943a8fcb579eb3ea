// Why a file operation failed, as far as the caller can do something about it.
#pragma once

#include "library/platform/api.h"

namespace host::core {

enum class FileError {
  None = 0,
  DiskFull,       ///< no space, no inode, over quota, or over a size limit
  ReadOnly,       ///< the file system is mounted read-only
  MissingFolder,  ///< the folder, or one above it, is not there or is no folder
  Permission,     ///< this user may not
  Exists,         ///< the name is taken
  NameTooLong,
  TooManyFiles,  ///< too many open files in this process or on this system
  InputOutput,   ///< the device failed, and everything else
};

/// The error that an errno value stands for; InputOutput for what has none of its own.
FileError fileErrorOf(int errnoValue);

/// A short text in English; never null.
KAVI_API const char* fileErrorText(FileError error);

}  // namespace host::core
