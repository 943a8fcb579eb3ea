#include "gateway/cli/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace gateway::cli {
namespace {

bool wantsColour(int descriptor) {
  const char* none = std::getenv("NO_COLOR");
  const char* term = std::getenv("TERM");
  if (none != nullptr && *none != '\0') return false;
  if (term != nullptr && std::string_view(term) == "dumb") return false;
  return isTerminal(descriptor);
}

}  // namespace

Style::Style(Colour colour, int descriptor)
    : on_(colour == Colour::Always || (colour == Colour::Auto && wantsColour(descriptor))) {}

std::string Style::wrap(const char* code, std::string_view text) const {
  if (!on_ || text.empty()) return std::string(text);
  return std::string("\x1b[") + code + "m" + std::string(text) + "\x1b[0m";
}

bool isTerminal(int descriptor) { return ::isatty(descriptor) == 1; }

unsigned int terminalWidth(int descriptor) {
  struct winsize size {};
  if (::ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 80;
  return size.ws_col;
}

std::string withThousands(std::uint64_t number) {
  std::string digits = std::to_string(number);
  for (std::size_t end = digits.size(); end > 3; end -= 3) digits.insert(end - 3, ",");
  return digits;
}

std::string counted(std::uint64_t number, std::string_view one, std::string_view many) {
  return withThousands(number) + " " + std::string(number == 1 ? one : many);
}

std::string padded(std::string_view text, std::size_t width) {
  std::string out(text);
  const auto columns = static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  }));
  if (columns < width) out.append(width - columns, ' ');
  return out;
}

}  // namespace gateway::cli
