#include "gateway/milter/header_alignment.h"

#include <algorithm>

#include "host/message/ascii.h"

namespace gateway::milter {
namespace {

using Lines = std::vector<HeaderLine>;
using Steps = std::vector<AlignmentStep>;

/// Beyond so many operations it does not matter any more how few they are.
constexpr long kMaxDistance = 256;

/// Finds how far one gets with 0, 1, 2, … operations on each diagonal of the table of both headers
/// (Ukkonen's method): a header with few changes takes time linear in its length. A field that is
/// changed has to keep its name; the farthest point of a diagonal still is the best to go on from,
/// as an earlier one that allows a change leads no farther than that point.
class Aligner {
 public:
  Aligner(const Lines& before, const Lines& after, std::size_t prefix, std::size_t suffix)
      : before_(before.data() + prefix),
        after_(after.data() + prefix),
        rows_(static_cast<long>(before.size() - prefix - suffix)),
        columns_(static_cast<long>(after.size() - prefix - suffix)) {}

  /// Appends the steps between prefix and suffix.
  void addTo(Steps& steps) {
    long distance = 0;
    for (; distance <= kMaxDistance; ++distance) {
      reach_.emplace_back();
      for (long diagonal = -distance; diagonal <= distance; ++diagonal) {
        reach_.back().push_back(slide(best(distance, diagonal).row, diagonal));
      }
      if (at(distance, columns_ - rows_) == rows_) break;
    }
    if (distance > kMaxDistance) {
      steps.insert(steps.end(), static_cast<std::size_t>(rows_), AlignmentStep::Delete);
      steps.insert(steps.end(), static_cast<std::size_t>(columns_), AlignmentStep::Insert);
      return;
    }
    traceBack(distance, steps);
  }

 private:
  static constexpr long kNowhere = -1;

  struct Arrival {
    long row = kNowhere;
    AlignmentStep step = AlignmentStep::Keep;
  };

  /// The farthest row on a diagonal (column minus row) after a number of operations.
  long at(long distance, long diagonal) const {
    if (distance < 0 || diagonal < -distance || diagonal > distance) return kNowhere;
    return reach_[static_cast<std::size_t>(distance)]
                 [static_cast<std::size_t>(diagonal + distance)];
  }

  /// The farthest row that the last operation leads to, before anything that is kept behind it.
  Arrival best(long distance, long diagonal) const {
    if (distance == 0) return {0, AlignmentStep::Keep};
    Arrival found;
    const auto offer = [&](long row, AlignmentStep step) {
      if (row > found.row) found = {row, step};
    };
    const long same = at(distance - 1, diagonal);
    if (same != kNowhere && canChange(same, same + diagonal))
      offer(same + 1, AlignmentStep::Change);
    const long above = at(distance - 1, diagonal + 1);
    if (above != kNowhere && above < rows_) offer(above + 1, AlignmentStep::Delete);
    const long left = at(distance - 1, diagonal - 1);
    if (left != kNowhere && left + diagonal <= columns_) offer(left, AlignmentStep::Insert);
    return found;
  }

  long slide(long row, long diagonal) const {
    if (row == kNowhere) return row;
    while (row < rows_ && row + diagonal < columns_ && before_[row] == after_[row + diagonal])
      ++row;
    return row;
  }

  bool canChange(long row, long column) const {
    return row < rows_ && column < columns_ &&
           host::message::equalsIgnoreCase(before_[row].name, after_[column].name) &&
           !after_[column].value.empty();
  }

  void traceBack(long distance, Steps& steps) const {
    Steps reversed;
    long row = rows_;
    long diagonal = columns_ - rows_;
    for (; distance >= 0; --distance) {
      const Arrival arrival = best(distance, diagonal);
      reversed.insert(reversed.end(), static_cast<std::size_t>(row - arrival.row),
                      AlignmentStep::Keep);
      row = arrival.row;
      if (distance == 0) break;
      reversed.push_back(arrival.step);
      if (arrival.step != AlignmentStep::Insert) --row;
      if (arrival.step == AlignmentStep::Delete) ++diagonal;
      if (arrival.step == AlignmentStep::Insert) --diagonal;
    }
    steps.insert(steps.end(), reversed.rbegin(), reversed.rend());
  }

  const HeaderLine* before_;
  const HeaderLine* after_;
  long rows_;
  long columns_;
  std::vector<std::vector<long>> reach_;
};

}  // namespace

std::vector<AlignmentStep> alignHeaders(const Lines& before, const Lines& after) {
  const std::size_t shorter = std::min(before.size(), after.size());
  std::size_t prefix = 0;
  while (prefix < shorter && before[prefix] == after[prefix]) ++prefix;
  std::size_t suffix = 0;
  while (suffix < shorter - prefix &&
         before[before.size() - 1 - suffix] == after[after.size() - 1 - suffix]) {
    ++suffix;
  }
  Steps steps(prefix, AlignmentStep::Keep);
  Aligner(before, after, prefix, suffix).addTo(steps);
  steps.insert(steps.end(), suffix, AlignmentStep::Keep);
  return steps;
}

}  // namespace gateway::milter
