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
    case AdapterError::UnderWay:
      return "the same message is being worked on at this moment (try again in a few minutes)";
    case AdapterError::Uncertain:
      return "it is not known whether it came about";
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
    case AdapterError::NotOurFolder:
      return "the folder is not the one that was used before (is its disk mounted?)";
    case AdapterError::BadAddress:
      return "an address holds characters that SMTP cannot carry";
    case AdapterError::Utf8Address:
      return "an address needs SMTPUTF8, which is not spoken";
    case AdapterError::NoRecipients:
      return "no recipients";
    case AdapterError::NoDestination:
      return "no host is set to send to (scan_host, plain_host in section delivery)";
    case AdapterError::Unresolved:
      return "host name not found";
    case AdapterError::ConnectionRefused:
      return "connection refused";
    case AdapterError::Unreachable:
      return "host unreachable";
    case AdapterError::ConnectionLost:
      return "connection lost";
    case AdapterError::TimedOut:
      return "timed out";
    case AdapterError::TlsFailed:
      return "TLS failed";
    case AdapterError::LoginFailed:
      return "login failed";
    case AdapterError::BadReply:
      return "reply not understood";
    case AdapterError::BrokenOff:
      return "broken off, as the gateway was being stopped";
    case AdapterError::RefusedForNow:
      return "refused for now";
    case AdapterError::RefusedForGood:
      return "refused";
    case AdapterError::RecipientRefusedForNow:
      return "recipient refused for now";
    case AdapterError::RecipientRefusedForGood:
      return "recipient refused";
    case AdapterError::GaveUp:
      return "given up after too long a time";
    case AdapterError::KeyUnavailable:
      return "the sealing keys cannot be read";
    case AdapterError::TooManyPasses:
      return "too many passes through scanning";
    case AdapterError::IndexUnavailable:
      return store::storeErrorText(store::StoreError::Unavailable);
    case AdapterError::IndexBusy:
      return store::storeErrorText(store::StoreError::Busy);
    case AdapterError::IndexFull:
      return store::storeErrorText(store::StoreError::Full);
    case AdapterError::IndexReadOnly:
      return store::storeErrorText(store::StoreError::ReadOnly);
    case AdapterError::IndexPermission:
      return store::storeErrorText(store::StoreError::Permission);
    case AdapterError::IndexDamaged:
      return store::storeErrorText(store::StoreError::Damaged);
    case AdapterError::IndexTooNew:
      return store::storeErrorText(store::StoreError::TooNew);
    case AdapterError::IndexFailed:
      return store::storeErrorText(store::StoreError::InputOutput);
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

AdapterError adapterErrorOf(store::StoreError error) {
  switch (error) {
    case store::StoreError::None:
      return AdapterError::None;
    case store::StoreError::InvalidArgument:
      return AdapterError::InvalidArgument;
    case store::StoreError::NotFound:
      return AdapterError::NotFound;
    case store::StoreError::Conflict:
      return AdapterError::UnderWay;
    case store::StoreError::Unavailable:
      return AdapterError::IndexUnavailable;
    case store::StoreError::Busy:
      return AdapterError::IndexBusy;
    case store::StoreError::Full:
      return AdapterError::IndexFull;
    case store::StoreError::ReadOnly:
      return AdapterError::IndexReadOnly;
    case store::StoreError::Permission:
      return AdapterError::IndexPermission;
    case store::StoreError::Damaged:
      return AdapterError::IndexDamaged;
    case store::StoreError::TooNew:
      return AdapterError::IndexTooNew;
    case store::StoreError::OutOfMemory:
      return AdapterError::OutOfMemory;
    case store::StoreError::InUse:      // of named objects,
    case store::StoreError::NameTaken:  // which are no business of the adapter
    case store::StoreError::InputOutput:
    case store::StoreError::Internal:
      break;
  }
  return AdapterError::IndexFailed;
}

}  // namespace host::delivery
