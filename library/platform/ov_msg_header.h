// Header fields and file names of an entity.
#pragma once

#include "library/platform/api.h"

/// One header field of an entity (RFC 5322 section 2.2). Borrowed: it belongs to its entity and
/// lives until the field is removed or the message is deleted. Returned texts are valid until the
/// next call on the same object.
class KAVI_API OvMsgHeader {
 public:
  /// The field's name as written, without the colon; null for a line without a name.
  virtual const char* name() const = 0;

  /// The value unfolded and trimmed of white space. Of Content-Type and Content-Disposition it is
  /// the value proper, without parameters ("text/plain", "attachment"), in its original case.
  virtual const char* value() const = 0;

  /// The value with its RFC 2047 words decoded, as bytes of `charset()`.
  /// \param hadEncodedWords  set to 1 when there were such words, else to 0.
  virtual const char* decodedValue(int& hadEncodedWords) const = 0;

  /// The field as it stands in the message: name, colon, value with its folds, final line break.
  virtual const char* rawValue() const = 0;

  /// The charset of the first encoded word, lower-cased; null when the value has none.
  virtual const char* charset() const = 0;

  /// The first address in the value, without display name and brackets; null when there is none, or
  /// none that an envelope could have.
  virtual const char* address() const = 0;

  /// Replaces the value. A CR or LF in it never opens a new field: with white space behind it it
  /// stays a fold, any other becomes a space.
  /// \param charset  of \p value; text that is not ASCII is written as RFC 2047 words in it. Null:
  ///   a value that has such words now gets its words in their charset again, if the bytes are text
  ///   in it; else the bytes are written as they stand.
  /// \return 0 or an OVMSGERR code; then the field is as it was.
  virtual int setValue(const char* value, const char* charset) = 0;

  /// Replaces everything behind the colon by \p value as it stands (line breaks made safe as
  /// above), followed by one line break.
  virtual int setRawValue(const char* value, const char* charset) = 0;

  /// Sets a parameter (RFC 2045 section 5.1, RFC 2231), adding it when it is absent.
  virtual int setParameter(const char* name, const char* value) = 0;

 protected:
  ~OvMsgHeader() = default;
};

/// The file name that an entity declares in Content-Disposition or Content-Type. Borrowed.
class KAVI_API OvMsgFileName {
 public:
  /// The name in UTF-8, decoded (RFC 2231, RFC 2047); null when it is declared without a text.
  virtual const char* name() const = 0;

 protected:
  ~OvMsgFileName() = default;
};
