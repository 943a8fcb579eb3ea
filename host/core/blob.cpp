// Blob records as text.
//
//   record  = "{" [ field *( "," field ) ] "}"
//   field   = text "=" text            key, value
//   text    = *( plain / "%" HEX HEX )
//   plain   = a printable ASCII byte (%x20-7E) other than "{" "}" "," "=" "%"
//
// Every other byte, NUL included, is written as "%" and two hexadecimal digits (upper case; both
// cases are read). So a record is one line of ASCII, whatever its fields hold, and the first byte
// that cannot stand in a record ends the reading: a reader never passes the terminating NUL. A key
// that stands twice makes the text no record.
#include "library/platform/blob.h"

#include <charconv>
#include <string_view>
#include <utility>

#include "host/core/guard.h"

namespace {

using Fields = std::map<std::string, std::string>;

constexpr char kHexDigits[] = "0123456789ABCDEF";

bool isPlain(char c) {
  return c >= 0x20 && c <= 0x7E && c != '{' && c != '}' && c != ',' && c != '=' && c != '%';
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// Reads one text at `at` and leaves `at` at the first byte behind it. A NUL is neither plain nor a
// hexadecimal digit, so no byte behind one is ever looked at.
bool readText(const char*& at, std::string& text) {
  while (true) {
    const char* start = at;
    while (isPlain(*at)) ++at;
    text.append(start, at);
    if (*at != '%') return true;
    const int high = hexValue(at[1]);
    const int low = high < 0 ? -1 : hexValue(at[2]);
    if (low < 0) return false;
    text += static_cast<char>(high * 16 + low);
    at += 3;
  }
}

bool readField(const char*& at, Fields& fields) {
  std::string key;
  std::string value;
  if (!readText(at, key) || *at != '=') return false;
  ++at;
  if (!readText(at, value)) return false;
  return fields.try_emplace(std::move(key), std::move(value)).second;
}

void writeText(std::string& out, std::string_view text) {
  for (const char c : text) {
    if (isPlain(c)) {
      out += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    out += '%';
    out += kHexDigits[byte >> 4];
    out += kHexDigits[byte & 15];
  }
}

}  // namespace

bool Blob::readBlob(const char*& cursor, Fields& fields) {
  if (cursor == nullptr || *cursor != '{') return false;
  return host::core::guarded(false, [&cursor, &fields] {
    const char* at = cursor + 1;
    Fields found;
    if (*at != '}') {
      if (!readField(at, found)) return false;
      while (*at == ',') {
        ++at;
        if (!readField(at, found)) return false;
      }
      if (*at != '}') return false;
    }
    cursor = at + 1;
    fields.swap(found);
    return true;
  });
}

void Blob::writeBlob(std::string& out, const Fields& fields) {
  out.clear();
  const bool written = host::core::guarded(false, [&out, &fields] {
    std::string text = "{";
    for (const auto& [key, value] : fields) {
      if (text.size() > 1) text += ',';
      writeText(text, key);
      text += '=';
      writeText(text, value);
    }
    text += '}';
    out.swap(text);
    return true;
  });
  if (!written) out.clear();
}

bool Blob::bindBlobField(Fields& fields, const char* key, std::string& member, bool store) {
  if (key == nullptr) return false;
  return host::core::guarded(false, [&] {
    if (store) {
      std::string value = member;
      fields[key].swap(value);
      return true;
    }
    const auto field = fields.find(key);
    if (field == fields.end()) return false;
    std::string value = field->second;
    member.swap(value);
    return true;
  });
}

bool Blob::bindBlobField(Fields& fields, const char* key, int& member, bool store) {
  if (key == nullptr) return false;
  return host::core::guarded(false, [&] {
    if (store) {
      std::string value = std::to_string(member);
      fields[key].swap(value);
      return true;
    }
    const auto field = fields.find(key);
    if (field == fields.end()) return false;
    const char* last = field->second.data() + field->second.size();
    int number = 0;
    const auto [end, fault] = std::from_chars(field->second.data(), last, number);
    if (fault != std::errc() || end != last) return false;
    member = number;
    return true;
  });
}
