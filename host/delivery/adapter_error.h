// The error codes of the delivery adapters.
#pragma once

#include "host/core/file_error.h"
#include "host/store/store_status.h"
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
  UnderWay = 9,           ///< another attempt is at the same effect of the same message just now
  Uncertain = 10,         ///< it may have come about all the same, or may still do so

  DiskFull = 20,
  ReadOnly = 21,
  MissingFolder = 22,
  Permission = 23,
  NameTaken = 24,
  NameTooLong = 25,
  TooManyFiles = 26,
  InputOutput = 27,
  NotOurFolder = 28,  ///< not the folder that was used before: its disk may not be mounted

  BadAddress = 40,     ///< an address or host name holds what no SMTP command may carry
  Utf8Address = 41,    ///< an address needs SMTPUTF8, which is not spoken
  NoRecipients = 42,   ///< the envelope has no recipient
  NoDestination = 43,  ///< no host is set for this kind of mail

  Unresolved = 50,  ///< the host name has no address
  ConnectionRefused = 51,
  Unreachable = 52,     ///< no connection for another reason
  ConnectionLost = 53,  ///< the server went away in the middle
  TimedOut = 54,
  TlsFailed = 55,    ///< no TLS where it is asked for, or a certificate that does not hold
  LoginFailed = 56,  ///< the server did not take user and password
  BadReply = 57,     ///< the server does not speak SMTP
  BrokenOff = 58,    ///< by ourselves, as the process is to end

  RefusedForNow = 60,           ///< a reply 4xx
  RefusedForGood = 61,          ///< a reply 5xx
  RecipientRefusedForNow = 62,  ///< the same for a recipient; nobody got anything
  RecipientRefusedForGood = 63,
  GaveUp = 64,  ///< tried for as long as the settings allow

  KeyUnavailable = 70,  ///< the file of the sealing keys cannot be read
  TooManyPasses = 71,   ///< the message came back for scanning too often

  // The index of stored messages, or the ledger of effects, could not be used.
  IndexUnavailable = 80,
  IndexBusy = 81,
  IndexFull = 82,
  IndexReadOnly = 83,
  IndexPermission = 84,
  IndexDamaged = 85,
  IndexTooNew = 86,  ///< written by a newer version
  IndexFailed = 87,  ///< its device failed, and everything else
};

/// A short text in English; never null. Unknown codes have a text too.
KAVI_API const char* adapterErrorText(unsigned int code);

/// The adapter's code for a failed file operation.
AdapterError adapterErrorOf(core::FileError error);

/// The adapter's code for a failed operation of the store.
AdapterError adapterErrorOf(store::StoreError error);

/// Sets the error argument of an adapter operation. \return the operation's result: 0, or 1.
inline int finish(unsigned int& error, AdapterError outcome) {
  error = static_cast<unsigned int>(outcome);
  return outcome == AdapterError::None ? 0 : 1;
}

}  // namespace host::delivery
