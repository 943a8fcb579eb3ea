// The SMTP envelope of a message.
#pragma once

#include "library/platform/api.h"

/// An address with its display name. Borrowed from the session information it came from.
class KAVI_API OvMsgAddress {
 public:
  /// The address without brackets; empty for the null sender; never null.
  virtual const char* address() const = 0;
  /// The display name in UTF-8; empty when there is none; never null.
  virtual const char* displayName() const = 0;

 protected:
  ~OvMsgAddress() = default;
};

/// A handle to a message's envelope (RFC 5321 section 2.3.1). Got from the message, released with
/// `OvMsg_DeleteSessionInfo` before the message; changes go to the message at once.
class KAVI_API OvMsgMailSessionInfo {
 public:
  /// Sets the sender; the empty text is the null sender. Display name and brackets are split off.
  /// \return 0 or an OVMSGERR code; then the sender is as it was.
  virtual int setSender(const char* address) = 0;
  /// The sender; null when none was ever set.
  virtual const OvMsgAddress* sender() const = 0;

  virtual int recipientCount() const = 0;
  /// The address at \p index, counted from 0, without brackets; null outside the count.
  virtual const char* recipientAt(int index) const = 0;
  /// Inserts an address before \p index; an index beyond the count appends.
  /// \return 0 or an OVMSGERR code; then the list is as it was.
  virtual int insertRecipient(int index, const char* address) = 0;

 protected:
  virtual ~OvMsgMailSessionInfo() = default;
};
