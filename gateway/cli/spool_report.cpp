#include "gateway/cli/spool_report.h"

#include <map>
#include <nlohmann/json.hpp>

#include "gateway/cli/submission.h"
#include "gateway/cli/terminal.h"
#include "host/core/text_escape.h"
#include "host/delivery/adapter_error.h"

namespace gateway::cli {
namespace {

using host::core::printable;
using host::delivery::SpoolEvent;
using host::delivery::SpoolItem;
using nlohmann::ordered_json;
using Condition = SpoolItem::Condition;

constexpr std::size_t kMostNamed = 20;

bool isKnown(const SpoolItem& item) {
  return item.condition == Condition::Waiting || item.condition == Condition::Sending ||
         item.condition == Condition::Failed;
}

std::string row(std::string_view label, const std::string& text) {
  return "    " + padded(label, 10) + text + "\n";
}

std::string recipientsOf(const SpoolItem& item) {
  const std::vector<std::string>& all = item.entry.envelope.recipients;
  std::string text;
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (i == kMostNamed) return text + " and " + std::to_string(all.size() - i) + " more";
    text += (i == 0 ? "<" : ", <") + printable(all[i]) + ">";
  }
  return text;
}

/// What every report says of a message.
ordered_json toJson(const SpoolItem& item, std::int64_t now) {
  ordered_json json = {{"id", item.id}, {"state", spoolStateWord(item, now)}};
  if (item.condition == Condition::Unreadable) {
    json["reason"] = host::delivery::adapterErrorText(static_cast<unsigned int>(item.fault));
    return json;
  }
  if (isKnown(item)) {
    json["kind"] = item.entry.kind;
    json["message_id"] = item.entry.messageId;
    json["queued"] = item.entry.queuedAt;
    json["bytes"] = item.entry.messageBytes;
    const auto& sender = item.entry.envelope.sender;
    json["from"] = sender ? ordered_json(*sender) : ordered_json(nullptr);
    json["rcpt"] = item.entry.envelope.recipients;
    json["passes"] = item.entry.passes;
    if (item.entry.rule != 0) json["rule"] = item.entry.rule;
    if (item.condition == Condition::Waiting) json["due"] = item.due;
  }
  json["attempts"] = item.state.attempts;
  if (item.state.lastAttempt != 0) json["last_attempt"] = item.state.lastAttempt;
  if (item.state.code != 0) json["last"] = {{"code", item.state.code}, {"text", item.state.text}};
  json["possibly_doubled"] = item.isPossiblyDoubled();
  return json;
}

ordered_json toJson(const SpoolEvent& event) {
  ordered_json json = {{"at", event.at}, {"event", spoolEventName(event.kind)}};
  if (event.code != 0) json["code"] = event.code;
  if (!event.text.empty()) json["text"] = event.text;
  if (event.due != 0) json["due"] = event.due;
  if (event.uncertain) json["uncertain"] = true;
  return json;
}

std::string written(const ordered_json& json) {
  return json.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace

const char* spoolStateWord(const SpoolItem& item, std::int64_t now) {
  switch (item.condition) {
    case Condition::Waiting:
      return item.due <= now ? "due" : "waiting";
    case Condition::Sending:
      return "sending";
    case Condition::Failed:
      return "failed";
    case Condition::Damaged:
      return "damaged";
    case Condition::Unreadable:
      break;
  }
  return "unreadable";
}

std::string spoolText(const SpoolItem& item, std::int64_t now) {
  std::string text = item.id + "  " + spoolStateWord(item, now);
  if (item.condition == Condition::Unreadable) {
    return text + ": " + host::delivery::adapterErrorText(static_cast<unsigned int>(item.fault)) +
           "\n";
  }
  if (isKnown(item)) {
    text += "  " + printable(item.entry.kind) + "  " + timeText(item.entry.queuedAt, 0) + "  " +
            counted(item.entry.messageBytes, "byte", "bytes");
  }
  text += "  " + counted(item.state.attempts, "attempt", "attempts") + "\n";
  if (isKnown(item)) {
    text += row("from", "<" + printable(item.entry.envelope.sender.value_or("")) + ">");
    text += row("to", recipientsOf(item));
  }
  if (item.condition == Condition::Waiting) text += row("next", timeText(item.due, now));
  if (!item.state.text.empty()) text += row("last", printable(item.state.text));
  if (item.isPossiblyDoubled()) {
    text += row("doubled?", "an attempt may have succeeded without our knowing");
  }
  return text;
}

std::string spoolListText(const std::vector<SpoolItem>& items, std::int64_t now) {
  std::string text;
  std::map<std::string, std::size_t> counts;
  for (const SpoolItem& item : items) {
    text += spoolText(item, now);
    ++counts[spoolStateWord(item, now)];
  }
  text += counted(items.size(), "message", "messages");
  for (const auto& [word, count] : counts) text += ", " + withThousands(count) + " " + word;
  return text + "\n";
}

std::string spoolListJson(const std::vector<SpoolItem>& items, std::int64_t now) {
  ordered_json list = ordered_json::array();
  for (const SpoolItem& item : items) list.push_back(toJson(item, now));
  return written(list);
}

std::string spoolShowText(const SpoolItem& item, const std::vector<SpoolEvent>& events,
                          std::int64_t now) {
  std::string text = spoolText(item, now);
  if (isKnown(item)) {
    text += row("message", printable(item.entry.messageId));
    text += row("window", item.entry.window.fromText() + " to " + item.entry.window.toText());
    if (item.entry.rule != 0) text += row("rule", std::to_string(item.entry.rule));
    if (item.entry.passes != 0) text += row("passes", std::to_string(item.entry.passes));
  }
  for (const SpoolEvent& event : events) {
    std::string line = timeText(event.at, 0) + "  " + spoolEventName(event.kind);
    if (!event.text.empty()) line += ": " + printable(event.text);
    if (event.uncertain) line += " (possibly taken all the same)";
    text += row("log", line);
  }
  return text;
}

std::string spoolShowJson(const SpoolItem& item, const std::vector<SpoolEvent>& events,
                          std::int64_t now) {
  ordered_json json = toJson(item, now);
  if (isKnown(item)) {
    json["window"] = {{"from", item.entry.window.fromText()}, {"to", item.entry.window.toText()}};
  }
  ordered_json log = ordered_json::array();
  for (const SpoolEvent& event : events) log.push_back(toJson(event));
  json["log"] = std::move(log);
  return written(json);
}

}  // namespace gateway::cli
