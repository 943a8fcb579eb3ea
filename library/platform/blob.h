// Key/value settings records.
#pragma once

#include <map>
#include <string>

#include "library/platform/api.h"

/// Turns a map of named fields into one line of text and back. The text holds no NUL, so that it
/// can be stored and handed on as a C string; any byte may stand in a key or a value. The host
/// defines the text form (see host/core/blob.cpp).
class KAVI_API Blob {
 public:
  Blob() = delete;

  /// Parses the record at \p cursor, a NUL-terminated text, into \p fields and moves \p cursor
  /// behind it.
  /// \return false if the text is not a record (null included); \p fields and \p cursor are then
  ///   as they were.
  static bool readBlob(const char*& cursor, std::map<std::string, std::string>& fields);

  /// Replaces \p out by the record of \p fields.
  static void writeBlob(std::string& out, const std::map<std::string, std::string>& fields);

  /// Moves one field. With \p store false: copies the value of \p key into \p member; with
  /// \p store true: puts the member's value into the map under \p key.
  /// \return false if the field could not be moved; \p member is then as it was.
  static bool bindBlobField(std::map<std::string, std::string>& fields, const char* key,
                            std::string& member, bool store);

  /// The same for an integer, written as signed decimal. A value with anything around the number,
  /// or outside the range of int, cannot be taken.
  static bool bindBlobField(std::map<std::string, std::string>& fields, const char* key,
                            int& member, bool store);
};
