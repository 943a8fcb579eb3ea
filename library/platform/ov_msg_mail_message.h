// A mail message.
#pragma once

#include <cstddef>

#include "library/platform/api.h"

class OvMsgEntity;
class OvMsgMailSessionInfo;
class OvMsgResourceLocator;

/// Receives the bytes of a rendered message, piece by piece.
class KAVI_API OvMsgSink {
 public:
  /// \return false to stop; rendering then ends with OVMSGERR::WriteFailed.
  virtual bool write(const char* data, std::size_t size) = 0;

 protected:
  ~OvMsgSink() = default;
};

/// Where a text goes in a body.
enum class OvMsgInsertPlace : int {
  Top = 1,
  End = 2,
};

/// One message, received or composed: a tree of entities and an envelope. Not shared between
/// threads. Everything it hands out is borrowed and dies with it, but for session information.
class KAVI_API OvMsgMailMessage {
 public:
  /// The identifier that the host gave the message: 16 to 36 characters from [0-9a-z].
  virtual const char* id() const = 0;

  /// The top-level entity; null for a message that has none (empty, or nothing like a header).
  virtual OvMsgEntity* firstEntity() = 0;
  virtual const OvMsgEntity* firstEntity() const = 0;

  /// True for S/MIME: multipart/signed with a pkcs7 protocol, or application/pkcs7-mime that
  /// declares signed-data (RFC 8551 section 3.5).
  virtual bool isSmimeSigned() const = 0;
  /// True for OpenPGP: multipart/signed with a pgp protocol (RFC 3156), or a clear-signed text
  /// (RFC 4880 section 7).
  virtual bool isPgpSigned() const = 0;

  /// The envelope, to be released with `OvMsg_DeleteSessionInfo`; null when there is none.
  virtual OvMsgMailSessionInfo* sessionInfo() const = 0;

  /// Inserts a text into the body, in every alternative of it.
  /// \param text     bytes in \p sourceCharset
  /// \param flags    20 from every caller: keep signed parts, keep the layout of the body
  /// \param destinationCharset  charset to write when the part's own cannot carry the text; null
  ///   to leave the choice to the library.
  /// \return 0 or an OVMSGERR code; then the message is as it was.
  virtual int insertText(OvMsgInsertPlace place, const OvMsgResourceLocator* text, int flags,
                         const char* sourceCharset, const char* destinationCharset) = 0;

  /// Writes the message as it stands now. \return 0, or OVMSGERR::WriteFailed.
  virtual int render(OvMsgSink& sink) const = 0;
  /// The number of bytes that `render` writes.
  virtual std::size_t renderedSize() const = 0;

 protected:
  virtual ~OvMsgMailMessage() = default;
};
