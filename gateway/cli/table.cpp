#include "gateway/cli/table.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "gateway/cli/terminal.h"
#include "host/core/text_escape.h"

namespace gateway::cli {
namespace {

constexpr std::size_t kMostColumns = 60;
constexpr std::size_t kGap = 2;

bool startsCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }

std::size_t columnsOf(const std::string& cell) {
  return static_cast<std::size_t>(std::count_if(cell.begin(), cell.end(), startsCharacter));
}

}  // namespace

Table::Table(std::vector<std::string> head) { rows_.push_back(std::move(head)); }

void Table::add(std::vector<std::string> cells) {
  for (std::string& cell : cells) cell = shortened(cell, kMostColumns);
  cells.resize(rows_.front().size());
  rows_.push_back(std::move(cells));
}

std::string Table::text() const {
  const std::size_t columns = rows_.front().size();
  std::vector<std::size_t> widths(columns, 0);
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < columns; ++i) widths[i] = std::max(widths[i], columnsOf(row[i]));
  }
  std::string text;
  for (const auto& row : rows_) {
    std::string line;
    for (std::size_t i = 0; i < columns; ++i) line += padded(row[i], widths[i] + kGap);
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

std::string shortened(const std::string& bytes, std::size_t most) {
  // No character is longer than four bytes.
  std::string text = host::core::printable(std::string_view(bytes).substr(0, 4 * most + 4));
  std::size_t characters = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (!startsCharacter(text[at]) || ++characters <= most) continue;
    text.resize(at);
    return text + "…";
  }
  return text;
}

std::string nameText(const std::string& name) { return "'" + shortened(name, kMostColumns) + "'"; }

}  // namespace gateway::cli
