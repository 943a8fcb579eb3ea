#include "host/delivery/adapter_error.h"

namespace host::delivery {

const char* adapterErrorText(unsigned int code) {
  switch (static_cast<AdapterError>(code)) {
    case AdapterError::None:
      return "no error";
    case AdapterError::InvalidArgument:
      return "invalid argument";
    case AdapterError::OutOfMemory:
      return "out of memory";
    case AdapterError::MessageUnreadable:
      return "the message could not be written out";
    case AdapterError::NotAvailable:
      return "not available in this build";
    case AdapterError::PathTooLong:
      return "the path of the stored copy is too long";
    case AdapterError::Damaged:
      return "the stored entry is damaged";
    case AdapterError::NotFound:
      return "no such entry";
    case AdapterError::Internal:
      return "internal error";
    case AdapterError::DiskFull:
      return core::fileErrorText(core::FileError::DiskFull);
    case AdapterError::ReadOnly:
      return core::fileErrorText(core::FileError::ReadOnly);
    case AdapterError::MissingFolder:
      return core::fileErrorText(core::FileError::MissingFolder);
    case AdapterError::Permission:
      return core::fileErrorText(core::FileError::Permission);
    case AdapterError::NameTaken:
      return core::fileErrorText(core::FileError::Exists);
    case AdapterError::NameTooLong:
      return core::fileErrorText(core::FileError::NameTooLong);
    case AdapterError::TooManyFiles:
      return core::fileErrorText(core::FileError::TooManyFiles);
    case AdapterError::InputOutput:
      return core::fileErrorText(core::FileError::InputOutput);
  }
  return "unknown error";
}

AdapterError adapterErrorOf(core::FileError error) {
  switch (error) {
    case core::FileError::None:
      return AdapterError::None;
    case core::FileError::DiskFull:
      return AdapterError::DiskFull;
    case core::FileError::ReadOnly:
      return AdapterError::ReadOnly;
    case core::FileError::MissingFolder:
      return AdapterError::MissingFolder;
    case core::FileError::Permission:
      return AdapterError::Permission;
    case core::FileError::Exists:
      return AdapterError::NameTaken;
    case core::FileError::NameTooLong:
      return AdapterError::NameTooLong;
    case core::FileError::TooManyFiles:
      return AdapterError::TooManyFiles;
    case core::FileError::InputOutput:
      break;
  }
  return AdapterError::InputOutput;
}

}  // namespace host::delivery
