// What a person's terminal can show.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace gateway::cli {

enum class Colour { Auto, Always, Never };

/// Wraps texts in colours, or leaves them alone.
class Style {
 public:
  /// \param descriptor  where the texts go; Auto colours a terminal only, and none that asks for
  ///   none (NO_COLOR, TERM=dumb).
  Style(Colour colour, int descriptor);

  std::string bold(std::string_view text) const { return wrap("1", text); }
  std::string dim(std::string_view text) const { return wrap("2", text); }
  std::string good(std::string_view text) const { return wrap("32", text); }
  std::string notable(std::string_view text) const { return wrap("36", text); }
  std::string doubtful(std::string_view text) const { return wrap("33", text); }
  std::string bad(std::string_view text) const { return wrap("31", text); }

 private:
  std::string wrap(const char* code, std::string_view text) const;
  bool on_;
};

bool isTerminal(int descriptor);

/// The columns of the terminal at \p descriptor; 80 when that cannot be told.
unsigned int terminalWidth(int descriptor);

/// "1,234,567".
std::string withThousands(std::uint64_t number);

/// "1 message", "2 messages".
std::string counted(std::uint64_t number, std::string_view one, std::string_view many);

/// \p text filled with blanks to \p width columns; a character counts as one column.
std::string padded(std::string_view text, std::size_t width);

}  // namespace gateway::cli
