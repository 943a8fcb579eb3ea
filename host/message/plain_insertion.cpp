#include "host/message/plain_insertion.h"

#include <string>

#include "host/message/ascii.h"

namespace host::message {

namespace {

constexpr std::string_view kSignatureLine = "-- ";

void appendFixedLine(std::string_view line, std::string& out) {
  if (line != kSignatureLine) {
    while (!line.empty() && isBlank(line.back())) line.remove_suffix(1);
  }
  if (line.starts_with(' ') || line.starts_with('>') || line.starts_with("From ")) out += ' ';
  out += line;
}

std::string fixedLines(std::string_view lines) {
  std::string result;
  while (true) {
    const std::size_t end = lines.find('\n');
    appendFixedLine(lines.substr(0, end), result);
    if (end == std::string_view::npos) return result;
    result += '\n';
    lines.remove_prefix(end + 1);
  }
}

/// Whether the last line of \p text goes on in the line behind it.
bool flowsOn(std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  if (text.ends_with('\r')) text.remove_suffix(1);
  const std::size_t lf = text.rfind('\n');
  if (lf != std::string_view::npos) text.remove_prefix(lf + 1);
  // A line of another quote depth ends with itself.
  return text.ends_with(' ') && !text.starts_with('>') && text != kSignatureLine;
}

}  // namespace

TextEdit plainInsertion(const PlainText& into, std::string_view lines, OvMsgInsertPlace place) {
  TextEdit edit;
  edit.text = into.isFlowed ? fixedLines(lines) : std::string(lines);
  const std::string_view present = into.text.substr(into.begin);
  const bool isFirst = place == OvMsgInsertPlace::Top && !present.empty();
  edit.at = isFirst ? into.begin : into.text.size();
  const bool isComplete = present.empty() ? into.needsEnd : present.ends_with('\n');
  if (!edit.text.ends_with('\n')) {
    if (isFirst || isComplete) edit.text += '\n';
  } else if (!isFirst && !isComplete) {
    edit.text.pop_back();
  }
  if (isFirst || present.empty()) return edit;
  if (into.isFlowed && flowsOn(present)) edit.text.insert(edit.text.begin(), '\n');
  if (!isComplete) edit.text.insert(edit.text.begin(), '\n');
  return edit;
}

}  // namespace host::message
