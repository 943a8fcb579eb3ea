// Settings strings of the key/value kind.
#pragma once

#include <map>
#include <string>

#include "library/platform/blob.h"

/// The record of \p fields.
inline std::string record(const std::map<std::string, std::string>& fields) {
  std::string text;
  Blob::writeBlob(text, fields);
  return text;
}
