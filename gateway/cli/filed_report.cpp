#include "gateway/cli/filed_report.h"

#include <nlohmann/json.hpp>

#include "gateway/cli/json_output.h"
#include "gateway/cli/submission.h"
#include "gateway/cli/table.h"
#include "gateway/cli/terminal.h"
#include "host/core/text_escape.h"

namespace gateway::cli {
namespace {

using host::core::printable;
using host::store::IndexEntry;
using nlohmann::ordered_json;

constexpr std::int64_t kSecondsPerDay = std::int64_t{24} * 60 * 60;

std::string senderOf(const IndexEntry& entry) {
  return entry.sender ? "<" + *entry.sender + ">" : "unknown";
}

std::string recipientsOf(const IndexEntry& entry) {
  if (entry.recipients.empty()) return "unknown";
  const std::string first = "<" + entry.recipients.front() + ">";
  const std::size_t others = entry.recipients.size() - 1;
  return others == 0 ? first : first + " and " + withThousands(others) + " more";
}

std::int64_t goesAt(const IndexEntry& entry) {
  return entry.storedAt + static_cast<std::int64_t>(*entry.agingDays) * kSecondsPerDay;
}

std::string row(std::string_view label, const std::string& text) {
  return padded(label, 12) + text + "\n";
}

ordered_json toJson(const IndexEntry& entry) {
  ordered_json json = {{"number", entry.row}};
  addBytes("area", entry.area, json);
  addBytes("message_id", entry.messageId, json);
  addBytes("rule", entry.rule, json);
  json["stored"] = entry.storedAt;
  json["expires"] = entry.agingDays ? ordered_json(goesAt(entry)) : ordered_json(nullptr);
  json["bytes"] = entry.size;
  json["from"] = nullptr;
  if (entry.sender) addBytes("from", *entry.sender, json);
  json["rcpt"] = entry.recipients;
  addBytes("subject", entry.subject, json);
  addBytes("path", entry.path, json);
  return json;
}

std::string written(const ordered_json& json) {
  return json.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace

std::string filedListText(const std::vector<IndexEntry>& entries, bool more) {
  Table table({"NUMBER", "STORED", "AREA", "RULE", "BYTES", "FROM", "TO", "SUBJECT"});
  for (const IndexEntry& entry : entries) {
    table.add({std::to_string(entry.row), timeText(entry.storedAt, 0), entry.area, entry.rule,
               withThousands(entry.size), senderOf(entry), recipientsOf(entry), entry.subject});
  }
  std::string text = table.isEmpty() ? "" : table.text();
  text += counted(entries.size(), "message", "messages");
  if (more) text += "; the next: --after " + std::to_string(entries.back().row);
  return text + "\n";
}

std::string filedListJson(const std::vector<IndexEntry>& entries) {
  ordered_json list = ordered_json::array();
  for (const IndexEntry& entry : entries) list.push_back(toJson(entry));
  return written(list);
}

std::string filedText(const IndexEntry& entry) {
  std::string text = row("number", std::to_string(entry.row));
  text += row("area", printable(entry.area));
  text += row("stored", timeText(entry.storedAt, 0));
  text += row("kept until", entry.agingDays ? timeText(goesAt(entry), 0) : "it is deleted");
  text += row("rule", entry.rule.empty() ? "unknown" : printable(entry.rule));
  text += row("from", printable(senderOf(entry)));
  if (entry.recipients.empty()) text += row("to", "unknown");
  for (const std::string& recipient : entry.recipients) {
    text += row("to", "<" + printable(recipient) + ">");
  }
  text += row("subject", printable(entry.subject));
  text += row("message", printable(entry.messageId));
  text += row("bytes", withThousands(entry.size));
  text += row("file", printable(entry.path));
  return text;
}

std::string filedJson(const IndexEntry& entry) { return written(toJson(entry)); }

std::string filedLine(const IndexEntry& entry) {
  return std::to_string(entry.row) + "  " + timeText(entry.storedAt, 0) + "  " +
         printable(senderOf(entry)) + "  " + shortened(entry.subject, 60) + "\n";
}

}  // namespace gateway::cli
