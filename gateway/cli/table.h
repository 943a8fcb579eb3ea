// A table for people.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace gateway::cli {

/// Rows of cells under a head, each column as wide as its widest cell. Cells may hold any bytes:
/// they are shown on one line, and cut where they are long.
class Table {
 public:
  explicit Table(std::vector<std::string> head);

  /// \param cells  one for each column
  void add(std::vector<std::string> cells);
  bool isEmpty() const { return rows_.size() == 1; }
  /// Each row with its line break.
  std::string text() const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

/// \p bytes as one line of valid UTF-8, cut behind \p most characters.
std::string shortened(const std::string& bytes, std::size_t most);

/// A name of an object or a rule, whatever its bytes, in quotes.
std::string nameText(const std::string& name);

}  // namespace gateway::cli
