// The delivery adapter: everything that takes a message out of the stream, or sends one.
#pragma once

#include "library/platform/api.h"

class OvMsgMailMessage;

/// Size in bytes of the buffer for a quarantined copy's path, its NUL included.
inline constexpr unsigned int kQuarantinePathSize = 520;
/// Size in bytes of the buffer for an archive area's name, its NUL included.
inline constexpr unsigned int kArchiveAreaNameSize = 256;

/// One per message. Every operation returns 0 for success; otherwise it returns non-zero, sets
/// \p error to a non-zero code that says why, and nothing was stored or sent. Messages are
/// borrowed and not changed. Success means durable: what was asked for survives a power cut.
class KAVI_API OvIsAdapter {
 public:
  virtual ~OvIsAdapter() = default;

  /// Removes the message from delivery.
  virtual int deleteMessage(unsigned int& error, OvMsgMailMessage* msg) = 0;

  /// Holds the message back until the time window of the day from the first time to the second
  /// (local time; hours 0 to 23, minutes 0 to 59).
  virtual int postponeMessage(unsigned int& error, OvMsgMailMessage* msg, unsigned char fromHour,
                              unsigned char fromMinute, unsigned char toHour,
                              unsigned char toMinute) = 0;

  /// Delivers the message to \p host and \p port, and nowhere else.
  virtual int handoffMessage(unsigned int& error, OvMsgMailMessage* msg, const char* host,
                             int port) = 0;

  /// Files the message under the quarantine folder and reports where.
  /// \param reserved   the empty string
  /// \param directory  the quarantine folder
  /// \param path       receives at most 519 bytes and a NUL.
  virtual int quarantineMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                                const char* directory, char (&path)[kQuarantinePathSize]) = 0;

  /// Files a copy of the message in an area of the archive folder.
  /// \param reserved   the empty string
  /// \param directory  the archive folder
  /// \param area       the area's name, NUL-terminated
  virtual int archiveMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                             const char* directory, const char (&area)[kArchiveAreaNameSize]) = 0;

  /// Sends the message with its present envelope back through scanning.
  /// \param flag  reserved, 1
  virtual int resendMessage(unsigned int& error, OvMsgMailMessage* msg, int flag) = 0;

  /// Sends the message with its present envelope without scanning it again.
  virtual int deliverMessage(unsigned int& error, OvMsgMailMessage* msg) = 0;
};
