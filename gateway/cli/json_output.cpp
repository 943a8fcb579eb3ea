#include "gateway/cli/json_output.h"

#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string_view>

#include "gateway/cli/complaints.h"
#include "host/core/text_escape.h"

namespace gateway::cli {
namespace {

using nlohmann::ordered_json;

std::atomic<bool> hasPrinted = false;  ///< anything, by this process
bool isJsonBegun = false;              ///< an object that has no end yet

/// A text of several lines.
std::string written(const ordered_json& json) {
  return json.dump(2, ' ', false, ordered_json::error_handler_t::replace);
}

std::string percentEncoded(const std::string& text) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80 && (std::isalnum(byte) != 0 || std::strchr("-._~/", c) != nullptr) && c != 0) {
      out += c;
    } else {
      out += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return out;
}

}  // namespace

void addBytes(const char* key, const std::string& bytes, ordered_json& json) {
  json[key] = bytes;
  if (!host::core::isUtf8(bytes)) json[std::string(key) + "_encoded"] = percentEncoded(bytes);
}

void printJson(const ordered_json& json) { printLine(written(json)); }

bool beginJson(const ordered_json& json) {
  std::string text = written(json);
  text.erase(text.rfind("\n}"));
  printText(text);
  isJsonBegun = true;
  return flushOutput();
}

void endJson(const ordered_json& json) {
  const std::string text = written(json);
  printLine(isJsonBegun ? "," + text.substr(1) : text);
  isJsonBegun = false;
}

bool flushOutput() { return std::fflush(stdout) == 0 && std::ferror(stdout) == 0; }

void addComplaints(ordered_json& json) {
  if (const std::string text = keptComplaints(); !text.empty()) json["error"] = text;
}

void printFailure() {
  if (hasPrinted && !isJsonBegun) return;
  ordered_json json = {{"error", "failed"}};
  addComplaints(json);
  if (isJsonBegun) {
    endJson(json);
  } else {
    // On one line, as kavi run has it.
    printLine(json.dump(-1, ' ', false, ordered_json::error_handler_t::replace));
  }
}

void printText(const std::string& text) {
  if (!text.empty()) hasPrinted = true;
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), stdout));
}

void printLine(const std::string& text) { printText(text + "\n"); }

void printAside(const std::string& text) {
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), stderr));
}

}  // namespace gateway::cli
