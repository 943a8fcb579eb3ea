// The error codes of the delivery adapters.
#pragma once

#include "host/core/file_error.h"
#include "library/platform/api.h"

namespace host::delivery {

/// What an adapter operation puts into its error argument. The numbers stand in log lines, so they
/// never change.
enum class AdapterError : unsigned int {
  None = 0,
  InvalidArgument = 1,  ///< a null message or text, or a value outside its range
  OutOfMemory = 2,
  MessageUnreadable = 3,  ///< the message could not be written out
  NotAvailable = 4,       ///< this build cannot do it; nothing was tried
  PathTooLong = 5,        ///< the stored copy's path does not fit the caller's buffer
  Damaged = 6,            ///< a stored entry is not what was written
  NotFound = 7,           ///< there is no such entry
  Internal = 8,           ///< a fault of the program

  DiskFull = 20,
  ReadOnly = 21,
  MissingFolder = 22,
  Permission = 23,
  NameTaken = 24,
  NameTooLong = 25,
  TooManyFiles = 26,
  InputOutput = 27,
};

/// A short text in English; never null. Unknown codes have a text too.
KAVI_API const char* adapterErrorText(unsigned int code);

/// The adapter's code for a failed file operation.
AdapterError adapterErrorOf(core::FileError error);

/// Sets the error argument of an adapter operation. \return the operation's result: 0, or 1.
inline int finish(unsigned int& error, AdapterError outcome) {
  error = static_cast<unsigned int>(outcome);
  return outcome == AdapterError::None ? 0 : 1;
}

}  // namespace host::delivery
