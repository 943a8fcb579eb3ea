#include <algorithm>
#include <string_view>
#include <utility>

#include "gateway/cli/report.h"
#include "host/core/text_escape.h"

namespace gateway::cli {
namespace {

using host::core::printable;

constexpr std::size_t kIndent = 11;

void addItem(std::string& list, const std::string& item) {
  if (!list.empty()) list += ", ";
  list += item;
}

std::string fieldsOf(const PartChange& part) {
  std::string fields;
  for (const FieldChange& field : part.fields) {
    addItem(fields, (field.name.empty() ? "a line without a name" : printable(field.name)) + " " +
                        wordOf(field.kind));
  }
  return fields;
}

std::string placeOf(const PartChange& part) {
  const bool isHeader = part.path == "1" && part.kind == ChangeKind::Changed && !part.content;
  return isHeader ? "header" : "part " + part.path;
}

std::string describe(const PartChange& part) {
  const std::string called =
      part.name.empty() ? printable(part.type) : printable(part.name) + ", " + printable(part.type);
  const std::size_t bytes = part.kind == ChangeKind::Removed ? part.bytesBefore : part.bytesAfter;
  if (part.kind == ChangeKind::Wrapped) {
    return "wrapped: " + called + ", all that was received, unchanged";
  }
  if (part.kind != ChangeKind::Changed) {
    std::string text = std::string(wordOf(part.kind)) + ": " + called;
    if (bytes != 0) text += ", " + counted(bytes, "byte", "bytes");
    return text;
  }
  std::string text = fieldsOf(part);
  if (part.content) {
    addItem(text, called + " content changed");
    if (part.bytesBefore != 0 || part.bytesAfter != 0) {
      text += ", " + withThousands(part.bytesBefore) + " to " +
              counted(part.bytesAfter, "byte", "bytes");
    }
  }
  return text;
}

std::string coloured(const DiffLine& line, const Style& style) {
  std::string text = line.mark + line.text;
  switch (line.mark) {
    case '+':
      return style.good(text);
    case '-':
      return style.bad(text);
    case '.':
      return style.dim("  " + line.text);
    default:
      return text;
  }
}

}  // namespace

std::string changesText(const MessageResult& result, const Style& style) {
  std::string out;
  std::size_t width = 0;
  for (const PartChange& part : result.parts) width = std::max(width, placeOf(part).size());
  for (const PartChange& part : result.parts) {
    out += "  " + style.dim(padded(out.empty() ? "changes" : "", kIndent - 2)) +
           padded(placeOf(part), width) + " " + " " + describe(part) + "\n";
  }
  for (const DiffSection& section : result.diff) {
    out += "\n  " + style.notable("@ " + section.title) + "\n";
    for (const DiffLine& line : section.lines) out += "  " + coloured(line, style) + "\n";
  }
  return out;
}

}  // namespace gateway::cli
