#include "gateway/milter/header_edits.h"

#include <algorithm>
#include <unordered_map>

#include "gateway/milter/header_alignment.h"
#include "host/message/ascii.h"

namespace gateway::milter {
namespace {

using host::message::isBlank;

/// The field that begins at the front of \p header, folds included; taken off it.
std::string_view takeField(std::string_view& header) {
  std::size_t end = 0;
  do {
    const std::size_t lineFeed = header.find('\n', end);
    end = lineFeed == std::string_view::npos ? header.size() : lineFeed + 1;
  } while (end < header.size() && isBlank(header[end]));
  const std::string_view field = header.substr(0, end);
  header.remove_prefix(end);
  return field;
}

void removeLineBreak(std::string_view& field) {
  if (!field.ends_with('\n')) return;
  field.remove_suffix(1);
  if (field.ends_with('\r')) field.remove_suffix(1);
}

/// \p value with its folds as LF only.
std::string withLineFeeds(std::string_view value) {
  std::string text;
  text.reserve(value.size());
  for (std::size_t i = 0; i < value.size(); ++i) {
    const bool isBreak = value[i] == '\r' && i + 1 < value.size() && value[i + 1] == '\n';
    if (!isBreak) text += value[i];
  }
  return text;
}

/// Counts the fields of each name.
class NameCounts {
 public:
  std::size_t next(const std::string& name) { return ++counts_[host::message::lowered(name)]; }

 private:
  std::unordered_map<std::string, std::size_t> counts_;
};

}  // namespace

std::optional<std::vector<HeaderLine>> splitHeader(std::string_view header) {
  std::vector<HeaderLine> lines;
  while (!header.empty()) {
    std::string_view field = takeField(header);
    removeLineBreak(field);
    const std::size_t colon = field.find(':');
    if (colon == std::string_view::npos) return std::nullopt;
    std::string_view name = field.substr(0, colon);
    while (!name.empty() && isBlank(name.back())) name.remove_suffix(1);
    if (!host::message::isFieldName(name)) return std::nullopt;
    lines.push_back({std::string(name), withLineFeeds(field.substr(colon + 1))});
  }
  return lines;
}

std::vector<HeaderEdit> headerEdits(const std::vector<HeaderLine>& before,
                                    const std::vector<HeaderLine>& after) {
  using Kind = HeaderEdit::Kind;
  std::vector<HeaderEdit> changes;
  std::vector<HeaderEdit> deletions;
  std::vector<HeaderEdit> insertions;
  NameCounts counts;
  std::size_t row = 0;
  std::size_t column = 0;
  for (const AlignmentStep step : alignHeaders(before, after)) {
    const std::size_t index = step == AlignmentStep::Insert ? 0 : counts.next(before[row].name);
    if (step == AlignmentStep::Change) {
      changes.push_back({Kind::Change, after[column].name, index, after[column].value});
    } else if (step == AlignmentStep::Delete) {
      deletions.push_back({Kind::Delete, before[row].name, index, {}});
    } else if (step == AlignmentStep::Insert) {
      // All above it is in its final place by then.
      insertions.push_back({Kind::Insert, after[column].name, column + 1, after[column].value});
    }
    if (step != AlignmentStep::Insert) ++row;
    if (step != AlignmentStep::Delete) ++column;
  }
  std::vector<HeaderEdit> edits = std::move(changes);
  edits.insert(edits.end(), deletions.rbegin(), deletions.rend());
  edits.insert(edits.end(), insertions.begin(), insertions.end());
  return edits;
}

}  // namespace gateway::milter
