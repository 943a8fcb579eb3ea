#include "host/core/json_object.h"

#include <nlohmann/json.hpp>

#include "host/core/text_escape.h"

namespace host::core {

std::string jsonText(std::string_view text) { return nlohmann::json(printable(text)).dump(); }

JsonObject& JsonObject::field(const char* name, std::string_view value) {
  std::string added = fields_.empty() ? "\"" : ",\"";
  added += name;
  added += "\":";
  added += value;
  fields_ += added;
  return *this;
}

JsonObject& JsonObject::text(const char* name, std::string_view value) {
  return field(name, jsonText(value));
}

JsonObject& JsonObject::textOrNull(const char* name, const char* value) {
  return value != nullptr ? text(name, value) : null(name);
}

JsonObject& JsonObject::texts(const char* name, const std::vector<std::string>& values) {
  std::string list = "[";
  for (const std::string& value : values) {
    if (list.size() > 1) list += ',';
    list += jsonText(value);
  }
  return field(name, list + "]");
}

JsonObject& JsonObject::number(const char* name, std::int64_t value) {
  return field(name, std::to_string(value));
}

JsonObject& JsonObject::null(const char* name) { return field(name, "null"); }

JsonObject& JsonObject::object(const char* name, const JsonObject& value) {
  return field(name, value.line());
}

}  // namespace host::core
