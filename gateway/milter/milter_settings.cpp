#include "gateway/milter/milter_settings.h"

#include <charconv>

#include "gateway/policy/store_location.h"
#include "host/core/section_reader.h"

namespace gateway::milter {
namespace {

using host::core::SectionReader;

constexpr char kUnix[] = "unix:";

void readSize(SectionReader& section, const char* key, std::size_t unit, int most,
              std::size_t& value) {
  int number = static_cast<int>(value / unit);
  section.number(key, 1, most, number);
  value = static_cast<std::size_t>(number) * unit;
}

void readLimits(SectionReader& section, MessageLimits& limits) {
  constexpr int kMost = 1'000'000;
  readSize(section, "max_message_mb", std::size_t{1} << 20, 2000, limits.bytes);
  readSize(section, "max_header_fields", 1, 100'000, limits.headerFields);
  readSize(section, "max_header_kb", 1024, kMost, limits.headerBytes);
  readSize(section, "max_recipients", 1, kMost, limits.recipients);
  readSize(section, "max_parts", 1, kMost, limits.parts);
  readSize(section, "max_depth", 1, 65'536, limits.depth);
}

void readMode(SectionReader& section, mode_t& mode) {
  constexpr int kOctal = 8;
  constexpr unsigned int kMost = 0777;
  std::string text;
  if (!section.text("socket_mode", text)) return;
  unsigned int number = 0;
  const char* last = text.data() + text.size();
  const auto [end, fault] = std::from_chars(text.data(), last, number, kOctal);
  if (fault == std::errc() && end == last && number <= kMost) {
    mode = number;
  } else {
    section.fault("socket_mode", "'" + text + "' is no access mode (write it in octal: 0660)");
  }
}

/// A gateway has one policy: from a file or from a store.
void readPolicyPlace(Kavi::GlobalSetting& settings, SectionReader& section, MilterSettings& found,
                     std::string& faults) {
  std::string file;
  section.path("policy", file);
  std::string fault;
  found.store = policy::configuredStore(settings, fault);
  if (!fault.empty()) faults += fault + "\n";
  if (!found.store.empty() && !file.empty()) {
    section.fault("policy",
                  "names a file, and location in section store a store: only one of them "
                  "can hold the policy (remove one)");
  }
  if (!file.empty()) found.policy = std::move(file);
  if (!found.store.empty()) found.policy.clear();
}

void readVerdict(SectionReader& section, Answer::Kind& kind) {
  std::string word;
  if (!section.text("beyond_limits", word)) return;
  if (word == "tempfail") {
    kind = Answer::Kind::TempFail;
  } else if (word == "reject") {
    kind = Answer::Kind::Reject;
  } else {
    section.fault("beyond_limits", "'" + word + "' is neither tempfail nor reject");
  }
}

void readSocket(SectionReader& section, std::string& socket) {
  std::string text;
  if (!section.text("socket", text)) return;
  if (text.starts_with("unix:/") || text.starts_with("inet:") || text.starts_with("inet6:")) {
    socket = text;
  } else {
    section.fault("socket", "'" + text + "' is no socket (write unix:/PATH or inet:PORT@HOST)");
  }
}

}  // namespace

std::string MilterSettings::socketPath() const {
  return socket.starts_with(kUnix) ? socket.substr(sizeof(kUnix) - 1) : std::string();
}

bool MilterSettings::read(Kavi::GlobalSetting& settings, std::string& error) {
  MilterSettings found;
  std::string faults;
  SectionReader section(settings, "milter", faults);
  readPolicyPlace(settings, section, found, faults);
  readSocket(section, found.socket);
  readMode(section, found.socketMode);
  section.text("user", found.user);
  section.text("reinjection_listener", found.reinjectionListener);
  readVerdict(section, found.beyondLimits);
  readLimits(section, found.limits);
  readSize(section, "memory_kb", 1024, 1'000'000, found.memoryBytes);
  section.number("metrics_port", 0, 65'535, found.metricsPort);
  section.number("deadline_seconds", 1, 3600, found.deadlineSeconds);
  if (!faults.empty()) {
    error = std::move(faults);
    return false;
  }
  *this = std::move(found);
  return true;
}

}  // namespace gateway::milter
