// Creating and releasing what the message library hands out, and its conversions.
#pragma once

#include <cstddef>

#include "library/platform/api.h"

class OvMsgMailMessage;
class OvMsgMailSessionInfo;

/// Bytes in memory that stand for a content. Made by `OvMsg_CreateResourceLocator`.
class KAVI_API OvMsgResourceLocator {
 public:
  virtual const char* data() const = 0;
  virtual std::size_t size() const = 0;

 protected:
  virtual ~OvMsgResourceLocator() = default;
};

/// The one kind of resource there is: bytes in memory.
inline constexpr int kOvMsgMemoryResource = 1;

/// A new message with an empty envelope and a root entity that has no content and one field: mail
/// that this product writes says so, "Auto-Submitted: auto-generated" (RFC 3834 section 5).
/// \return owned, to be released with `OvMsg_DeleteMailMessage`; null on failure.
KAVI_API OvMsgMailMessage* OvMsg_CreateMailMessage();
/// Releases a message; null is accepted.
KAVI_API void OvMsg_DeleteMailMessage(OvMsgMailMessage* msg);

/// An in-memory resource over a copy of \p length bytes.
/// \param kind      1, memory
/// \param capacity  the size of the resource, at least \p length; the rest is not read
/// \param copy      1; reserved
/// \return owned, to be released with `OvMsg_DeleteResourceLocator`; null on failure.
KAVI_API OvMsgResourceLocator* OvMsg_CreateResourceLocator(const char* data, int kind,
                                                           unsigned int length,
                                                           unsigned int capacity, int copy);
/// Releases a resource; null is accepted.
KAVI_API void OvMsg_DeleteResourceLocator(OvMsgResourceLocator* locator);

/// Releases a handle from `OvMsgMailMessage::sessionInfo`; null is accepted.
KAVI_API void OvMsg_DeleteSessionInfo(OvMsgMailSessionInfo* session);

/// Releases a text from `msgu::genRfc2047`; null is accepted.
KAVI_API void OvMsg_FreeHeaderValue(char* value);

/// 1: `OvMsgMailMessage::insertText` adds its text as an attachment, process-wide.
KAVI_API void OvMsg_SetDisclaimerAttachmentAsDefault(int on);

/// Converts a NUL-terminated text between charsets.
/// \param room   in: bytes that \p out has room for, the NUL included; out: bytes written, without
///   the NUL
/// \param flag   1: a byte that \p fromCharset does not define fails; 0: it becomes "?"
/// \param level  63; reserved
/// \return 0 or an OVMSGERR code; then \p out is the empty string.
KAVI_API int OvMsg_CharsetConverterString(const char* text, const char* fromCharset, char* out,
                                          const char* toCharset, unsigned int& room, int flag,
                                          int level);
