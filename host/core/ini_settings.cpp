#include "host/core/ini_settings.h"

#include <charconv>
#include <utility>

#include "host/core/guard.h"

namespace host::core {

namespace {

constexpr int kFound = 0;
constexpr int kMissing = 1;
constexpr int kDecimal = 10;
constexpr int kHexadecimal = 16;

}  // namespace

bool IniSettings::loadFile(const std::string& path, std::string& error) {
  return loaded_.load(path, error);
}

bool IniSettings::loadText(std::string_view text, const std::string& origin, std::string& error) {
  return loaded_.parse(text, origin, error);
}

void IniSettings::override(std::string_view section, std::string_view key, std::string value) {
  overrides_.set(section, key, std::move(value));
}

const std::string* IniSettings::find(const char* section, const char* key) const {
  if (section == nullptr || key == nullptr) return nullptr;
  const std::string* value = overrides_.find(section, key);
  return value != nullptr ? value : loaded_.find(section, key);
}

int IniSettings::getString(const char* key, std::string& value, const char* section,
                           int /*flags*/) {
  return guarded(kMissing, [&] {
    const std::string* text = find(section, key);
    if (text == nullptr) return kMissing;
    std::string copy = *text;
    value.swap(copy);
    return kFound;
  });
}

int IniSettings::getInt(const char* key, int& value, const char* section, int /*flags*/) {
  return guarded(kMissing, [&] {
    const std::string* text = find(section, key);
    return text != nullptr && parseInt(*text, value) ? kFound : kMissing;
  });
}

bool parseInt(std::string_view text, int& value) {
  int base = kDecimal;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    text.remove_prefix(2);
    base = kHexadecimal;
    if (text[0] == '-') return false;
  }
  int number = 0;
  const char* last = text.data() + text.size();
  const auto [end, fault] = std::from_chars(text.data(), last, number, base);
  if (fault != std::errc() || end != last) return false;
  value = number;
  return true;
}

}  // namespace host::core
