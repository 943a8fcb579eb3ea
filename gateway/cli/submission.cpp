#include "gateway/cli/submission.h"

#include <array>
#include <ctime>
#include <nlohmann/json.hpp>

#include "host/core/text_escape.h"

namespace gateway::cli {
namespace {

using host::delivery::SubmissionCounts;
using nlohmann::ordered_json;

/// A count with its words, or nothing for zero.
void add(std::string& text, std::size_t count, const std::string& words) {
  if (count == 0) return;
  if (!text.empty()) text += ", ";
  text += withThousands(count) + " " + words;
}

}  // namespace

bool Submission::good() const {
  return counts.deferred == 0 && counts.failed == 0 && counts.skipped == 0 && counts.troubled == 0;
}

Submission submitSpool(host::delivery::DeliveryState& state,
                       const host::delivery::DeliverySettings& settings,
                       const host::delivery::SealKeys& keys, host::core::ProcessLog& log,
                       bool verbose) {
  Submission submission;
  const host::core::LogCapture capture(log, verbose ? 3 : 2);
  host::delivery::SubmissionWorker worker(state.spool(), settings, keys, &log, state.spoolIndex());
  submission.counts = worker.runOnce(std::time(nullptr));
  submission.lines = capture.lines();
  return submission;
}

std::string textReport(const Submission& submission, const Style& style) {
  const SubmissionCounts& counts = submission.counts;
  std::string done;
  add(done, counts.sent, "sent");
  std::string open;
  add(open, counts.waiting, "not due yet");
  add(open, counts.busy, "in other hands");
  std::string bad;
  add(bad, counts.deferred, "refused for now");
  add(bad, counts.skipped, "not tried, as their server does not answer");
  add(bad, counts.failed, "failed");
  add(bad, counts.stuck, "failed earlier");
  add(bad, counts.troubled, "could not be worked at");
  std::string text;
  for (const std::string& part : {style.good(done), style.dim(open), style.bad(bad)}) {
    if (!part.empty()) text += (text.empty() ? "" : ", ") + part;
  }
  if (text.empty()) text = style.dim("nothing to send");
  if (counts.nextDue) {
    text += style.dim("; next attempt " + timeText(*counts.nextDue, std::time(nullptr)));
  }
  text = style.bold("spool") + "  " + text + "\n";
  for (const host::core::LogLine& line : submission.lines) {
    const std::string shown = host::core::printable(line.text);
    text += "  " + (line.level == 1 ? style.bad(shown) : shown) + "\n";
  }
  if (counts.failed + counts.stuck != 0) {
    text += style.dim("  what failed stays there: kavi spool list, show, retry, delete") + "\n";
  }
  return text;
}

std::string jsonReport(const Submission& submission) {
  const SubmissionCounts& counts = submission.counts;
  ordered_json lines = ordered_json::array();
  for (const host::core::LogLine& line : submission.lines) {
    lines.push_back({{"level", line.level}, {"text", line.text}});
  }
  ordered_json json = {{"sent", counts.sent},       {"deferred", counts.deferred},
                       {"failed", counts.failed},   {"waiting", counts.waiting},
                       {"skipped", counts.skipped}, {"busy", counts.busy},
                       {"stuck", counts.stuck},     {"troubled", counts.troubled}};
  if (counts.nextDue) json["next_due"] = *counts.nextDue;
  json["log"] = std::move(lines);
  return ordered_json{{"spool", std::move(json)}}.dump(-1, ' ', false,
                                                       ordered_json::error_handler_t::replace);
}

std::string timeText(std::int64_t time, std::int64_t now) {
  if (time <= now) return "now";
  const auto seconds = static_cast<std::time_t>(time);
  std::tm parts{};
  std::array<char, 32> text{};
  if (::localtime_r(&seconds, &parts) == nullptr) return std::to_string(time);
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts)};
}

}  // namespace gateway::cli
