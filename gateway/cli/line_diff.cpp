#include "gateway/cli/line_diff.h"

#include <algorithm>
#include <dtl/dtl.hpp>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "gateway/cli/terminal.h"
#include "host/core/text_escape.h"

namespace gateway::cli {
namespace {

using Lines = std::vector<std::string>;

constexpr std::string_view kCut = "…";
/// Bytes that are shown of what two long lines have in common.
constexpr std::size_t kCommonBytes = 60;

/// A line of the edit script, before it is made fit to print.
struct Step {
  char mark;
  std::string_view text;
};

/// Numbers instead of lines, the same for lines that are the same.
class Numbers {
 public:
  std::vector<int> of(const Lines& lines, std::size_t begin, std::size_t end) {
    std::vector<int> numbers;
    numbers.reserve(end - begin);
    for (std::size_t i = begin; i < end; ++i) {
      numbers.push_back(
          known_.try_emplace(lines[i], static_cast<int>(known_.size())).first->second);
    }
    return numbers;
  }

 private:
  std::unordered_map<std::string_view, int> known_;
};

/// Puts what goes before what comes, wherever no line of both stands between.
void order(std::vector<Step>& steps) {
  const auto isCommon = [](const Step& step) { return step.mark == ' '; };
  for (auto begin = steps.begin(); begin != steps.end();) {
    begin = std::find_if_not(begin, steps.end(), isCommon);
    const auto end = std::find_if(begin, steps.end(), isCommon);
    std::stable_partition(begin, end, [](const Step& step) { return step.mark == '-'; });
    begin = end;
  }
}

std::vector<Step> editScript(const Lines& before, const Lines& after, const DiffLimits& limits) {
  const auto [left, right] =
      std::mismatch(before.begin(), before.end(), after.begin(), after.end());
  const auto begin = static_cast<std::size_t>(left - before.begin());
  std::size_t beforeEnd = before.size();
  std::size_t afterEnd = after.size();
  while (beforeEnd > begin && afterEnd > begin && before[beforeEnd - 1] == after[afterEnd - 1]) {
    --beforeEnd;
    --afterEnd;
  }
  std::vector<Step> steps;
  for (std::size_t i = 0; i < begin; ++i) steps.push_back({' ', before[i]});
  std::size_t x = begin;
  std::size_t y = begin;
  if (beforeEnd - begin <= limits.comparedLines && afterEnd - begin <= limits.comparedLines) {
    Numbers numbers;
    const std::vector<int> from = numbers.of(before, begin, beforeEnd);
    const std::vector<int> to = numbers.of(after, begin, afterEnd);
    dtl::Diff<int, std::vector<int>> diff(from, to);
    diff.compose();
    for (const auto& [number, info] : diff.getSes().getSequence()) {
      if (info.type == dtl::SES_DELETE) {
        steps.push_back({'-', before[x++]});
      } else {
        steps.push_back({info.type == dtl::SES_ADD ? '+' : ' ', after[y++]});
        if (info.type == dtl::SES_COMMON) ++x;
      }
    }
  }
  for (; x < beforeEnd; ++x) steps.push_back({'-', before[x]});
  for (; y < afterEnd; ++y) steps.push_back({'+', after[y]});
  for (; x < before.size(); ++x) steps.push_back({' ', before[x]});
  order(steps);
  return steps;
}

bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

/// \p text from \p begin on, or a little before, as one printable line of \p bytes at most.
std::string shown(std::string_view text, std::size_t begin, std::size_t bytes) {
  while (begin > 0 && begin < text.size() && isContinuation(text[begin])) --begin;
  std::size_t end = std::min(text.size(), begin + bytes);
  while (end > begin && end < text.size() && isContinuation(text[end])) --end;
  std::string out(begin > 0 ? kCut : std::string_view());
  out += host::core::printable(text.substr(begin, end - begin));
  if (end < text.size()) out += kCut;
  return out;
}

/// How many bytes two lines share at their beginning.
std::size_t commonBytes(std::string_view left, std::string_view right) {
  const auto ends = std::mismatch(left.begin(), left.end(), right.begin(), right.end());
  return static_cast<std::size_t>(ends.first - left.begin());
}

class Printer {
 public:
  Printer(const std::vector<Step>& steps, const DiffLimits& limits)
      : steps_(steps), limits_(limits) {}

  std::vector<DiffLine> run() {
    markShown();
    std::size_t left = 0;
    for (std::size_t i = 0; i < steps_.size(); ++i) {
      if (!shown_[i]) {
        ++left;
        continue;
      }
      if (out_.size() >= limits_.shownLines) {
        out_.push_back({'.', counted(steps_.size() - i, "more line", "more lines")});
        return std::move(out_);
      }
      leaveOut(left);
      out_.push_back({steps_[i].mark, shown(steps_[i].text, firstByte(i), limits_.shownBytes)});
    }
    leaveOut(left);
    return std::move(out_);
  }

 private:
  void markShown() {
    shown_.assign(steps_.size(), false);
    for (std::size_t i = 0; i < steps_.size(); ++i) {
      if (steps_[i].mark == ' ') continue;
      const std::size_t from = i - std::min(i, limits_.context);
      const std::size_t to = std::min(steps_.size(), i + limits_.context + 1);
      std::fill(shown_.begin() + static_cast<std::ptrdiff_t>(from),
                shown_.begin() + static_cast<std::ptrdiff_t>(to), true);
    }
  }

  void leaveOut(std::size_t& lines) {
    if (lines != 0) out_.push_back({'.', counted(lines, "line", "lines") + " as before"});
    lines = 0;
  }

  /// Where to begin with a long line: where it differs from the one that it replaces, or that
  /// replaces it.
  std::size_t firstByte(std::size_t i) const {
    const std::string_view text = steps_[i].text;
    if (text.size() <= limits_.shownBytes || steps_[i].mark == ' ') return 0;
    const bool removed = steps_[i].mark == '-';
    // The n-th of a run of removed lines goes with the n-th of the added ones behind it.
    std::size_t begin = i;
    while (begin > 0 && steps_[begin - 1].mark == steps_[i].mark) --begin;
    std::size_t other = 0;
    if (removed) {
      std::size_t end = i;
      while (end < steps_.size() && steps_[end].mark == '-') ++end;
      other = end + (i - begin);
    } else {
      std::size_t first = begin;
      while (first > 0 && steps_[first - 1].mark == '-') --first;
      other = first + (i - begin);
      if (other >= begin) return 0;
    }
    if (other >= steps_.size() || steps_[other].mark != (removed ? '+' : '-')) return 0;
    const std::size_t common = commonBytes(text, steps_[other].text);
    return common > kCommonBytes ? common - kCommonBytes : 0;
  }

  const std::vector<Step>& steps_;
  const DiffLimits& limits_;
  std::vector<bool> shown_;
  std::vector<DiffLine> out_;
};

}  // namespace

std::vector<DiffLine> diffLines(const Lines& before, const Lines& after, const DiffLimits& limits) {
  if (before == after) return {};
  return Printer(editScript(before, after, limits), limits).run();
}

}  // namespace gateway::cli
