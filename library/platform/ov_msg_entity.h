// A MIME entity of a message.
#pragma once

#include "library/platform/api.h"

class OvMsgFileName;
class OvMsgHeader;
class OvMsgMailMessage;
class OvMsgResourceLocator;

/// What an entity holds.
enum class OvMsgEntityKind : int {
  Leaf = 1,           ///< content of its own
  Multipart = 2,      ///< children between delimiters (RFC 2046 section 5.1)
  Message = 3,        ///< a nested message, read; its root entity is the one child
  OpaqueMessage = 4,  ///< a nested message that is not read: encoded, partial, or too deep
};

/// One entity: a header and a body (RFC 2045 section 2.4). Borrowed: it belongs to its message. A
/// removed entity stays allocated until the message is deleted, so that its address is never used
/// again while the message lives.
class KAVI_API OvMsgEntity {
 public:
  virtual OvMsgEntityKind kind() const = 0;

  /// The next entity in document order (children before siblings, nested messages included), or
  /// null behind the last. The first is the message's root entity.
  virtual OvMsgEntity* nextEntity() = 0;

  /// The entity around this one; null for a root entity and for a removed one.
  virtual OvMsgEntity* parentEntity() = 0;

  /// True for every entity but the message's own root: its header fields describe a part, not the
  /// mail.
  virtual bool isSubordinate() const = 0;

  /// The number of header fields.
  virtual int headerCount() const = 0;
  /// The field at \p index, counted from 0; null outside the count.
  virtual OvMsgHeader* headerAt(int index) = 0;
  /// The first field named \p name (case ignored); null when there is none.
  virtual OvMsgHeader* header(const char* name) = 0;

  /// Adds a field. \param position  index before which it goes; -1 for the end.
  /// \param charset  as in OvMsgHeader::setValue
  /// \return true when the field was added.
  virtual bool addHeader(int position, const char* name, const char* value,
                         const char* charset) = 0;
  /// Removes every field named \p name (case ignored). \return true when there was one.
  virtual bool removeHeader(const char* name) = 0;
  /// Removes the one field at \p index. \return false outside the count.
  virtual bool removeHeaderAt(int index) = 0;

  /// The declared file name; null when there is none.
  virtual OvMsgFileName* fileName() = 0;

  /// Replaces the content and the fields that declare it.
  /// \param transferEncoding  "7bit", "8bit", "quoted-printable", "base64"; the content given is
  ///   the decoded one.
  /// \return 0 or an OVMSGERR code; then the entity is as it was.
  virtual int setContent(const OvMsgResourceLocator* content, const char* contentType,
                         const char* charset, const char* transferEncoding) = 0;

  /// Puts \p text into this entity as a text part, making it the body of an entity that has none
  /// and the first part of one that has a body. Bytes that are no text in their charset become "?".
  /// \param charset  of \p text, and declared. Null: the charset that the entity declares if the
  ///   bytes are text in it, else UTF-8; what is ASCII is then declared to be so.
  virtual int insertTextBody(const OvMsgResourceLocator* text, const char* contentType,
                             const char* charset, const char* transferEncoding) = 0;

  /// Inserts a copy of \p child, which may belong to another message, as a part of this entity;
  /// the bytes are shared, not copied. An entity that is no multipart becomes multipart/mixed, and
  /// its content the first part.
  /// \param position  index among the parts; -1 for the end.
  virtual int insertChild(const OvMsgEntity* child, int position) = 0;

  /// Inserts \p message whole, byte for byte, as a message/rfc822 part. \p position as above.
  virtual int attachMessage(const OvMsgMailMessage* message, int position) = 0;

 protected:
  ~OvMsgEntity() = default;
};
