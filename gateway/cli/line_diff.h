// The difference between two texts, line by line.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace gateway::cli {

/// A line of a difference. `mark` is ' ' for a line of both, '-' of the first, '+' of the second,
/// '.' where lines of both, or too many, are left out; the text then says so.
struct DiffLine {
  char mark = ' ';
  std::string text;
};

struct DiffLimits {
  std::size_t context = 3;  ///< lines of both that are shown around others
  std::size_t comparedLines =
      20'000;  ///< beyond that, on one side, all in between counts as changed
  std::size_t shownLines = 400;
  std::size_t shownBytes = 400;  ///< of a line; what two long ones have in common goes first
};

/// Empty when the texts are the same. What is shown is one line of printable text each.
std::vector<DiffLine> diffLines(const std::vector<std::string>& before,
                                const std::vector<std::string>& after,
                                const DiffLimits& limits = {});

}  // namespace gateway::cli
