#include "host/delivery/file_name.h"

#include "host/core/text_escape.h"

namespace host::delivery {

namespace {

constexpr std::size_t kMaxNameBytes = 180;
constexpr std::size_t kMaxExtensionBytes = 16;
constexpr char kSubstitute = '_';
constexpr char kNameless[] = "message";

// Where the extension begins; the end of the name when there is none worth keeping.
std::size_t extensionStart(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  const bool usable =
      dot != std::string_view::npos && dot != 0 && name.size() - dot <= kMaxExtensionBytes;
  return usable ? dot : name.size();
}

// The longest start of `name` of at most `room` bytes that cuts no character in two.
std::string_view cutTo(std::string_view name, std::size_t room) {
  std::size_t end = room;
  while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) --end;
  return name.substr(0, end);
}

}  // namespace

std::string safeFileName(std::string_view inputName) {
  inputName.remove_prefix(inputName.rfind('/') + 1);
  std::string name;
  while (!inputName.empty()) {
    const std::size_t length = core::utf8Length(inputName);
    const auto lead = static_cast<unsigned char>(inputName[0]);
    const bool control =
        lead < 0x20 || lead == 0x7F ||
        (length == 2 && lead == 0xC2 && static_cast<unsigned char>(inputName[1]) < 0xA0);
    if (length == 0 || control) {
      name += kSubstitute;
    } else {
      name += inputName.substr(0, length);
    }
    inputName.remove_prefix(length == 0 ? 1 : length);
  }
  if (name.empty()) return kNameless;
  if (name[0] == '.' || name[0] == '-') name[0] = kSubstitute;
  if (name.size() <= kMaxNameBytes) return name;
  const std::string extension = name.substr(extensionStart(name));
  return std::string(cutTo(name, kMaxNameBytes - extension.size())) + extension;
}

std::string numberedFileName(std::string_view name, unsigned int number) {
  const std::size_t dot = extensionStart(name);
  return std::string(name.substr(0, dot)) + "-" + std::to_string(number) +
         std::string(name.substr(dot));
}

}  // namespace host::delivery
