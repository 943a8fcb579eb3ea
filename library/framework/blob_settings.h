// Settings that are kept as a key/value record.
#pragma once

#include <map>
#include <string>

#include "library/platform/blob.h"

namespace library {

/// One field of a record: the key, and the member (std::string or int) that holds its value.
template <class Member>
struct BlobField {
  const char* key;
  Member& member;
};
template <class Member>
BlobField(const char*, Member&) -> BlobField<Member>;

/// Moves each field between the record and its member, in the order given.
/// \return false at the first that cannot be moved; those before it keep their new values.
template <class... Member>
bool bindBlobFields(std::map<std::string, std::string>& record, bool store,
                    BlobField<Member>... fields) {
  return (Blob::bindBlobField(record, fields.key, fields.member, store) && ...);
}

/// Reads \p setting, a NUL-terminated record, into the members.
template <class... Member>
bool constructFromBlob(const char* setting, BlobField<Member>... fields) {
  std::map<std::string, std::string> record;
  return Blob::readBlob(setting, record) && bindBlobFields(record, false, fields...);
}

/// The record of the members; the empty string when one cannot be stored.
template <class... Member>
std::string serializeToBlob(BlobField<Member>... fields) {
  std::map<std::string, std::string> record;
  std::string text;
  if (bindBlobFields(record, true, fields...)) {
    Blob::writeBlob(text, record);
  }
  return text;
}

}  // namespace library
