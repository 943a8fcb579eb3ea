// JSON objects for lines in files.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "library/platform/api.h"

namespace host::core {

/// Builds a JSON object on one line, field by field. Texts may hold any bytes and come out
/// printable
/// (`printable`). Field names are ASCII identifiers. Unlike a tree of JSON values it may run out of
/// memory anywhere: that throws std::bad_alloc, and the object stays usable.
class KAVI_API JsonObject {
 public:
  JsonObject& text(const char* name, std::string_view value);
  /// A null pointer becomes null.
  JsonObject& textOrNull(const char* name, const char* value);
  JsonObject& texts(const char* name, const std::vector<std::string>& values);
  JsonObject& number(const char* name, std::int64_t value);
  JsonObject& null(const char* name);
  JsonObject& object(const char* name, const JsonObject& value);

  /// The object: "{...}", without line break.
  std::string line() const { return "{" + fields_ + "}"; }

 private:
  JsonObject& field(const char* name, std::string_view value);

  std::string fields_;
};

/// \p text as a JSON string, quotation marks included.
std::string jsonText(std::string_view text);

}  // namespace host::core
