#include "host/trap/trap_text.h"

#include <string_view>

namespace host::trap {

namespace {

constexpr std::string_view kNotice = " [cut]";
constexpr std::size_t kLongestCharacter = 4;

bool continuesCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

}  // namespace

std::string fittingTrapText(const std::string& text) {
  if (text.size() <= kMaxTrapText) return text;
  const std::size_t room = kMaxTrapText - kNotice.size();
  std::size_t length = room;
  while (continuesCharacter(text[length]) && room - length < kLongestCharacter) --length;
  // No character is that long: these bytes are not UTF-8, and one place is as good as another.
  if (continuesCharacter(text[length])) length = room;
  return text.substr(0, length).append(kNotice);
}

}  // namespace host::trap
