#include "host/delivery/spool_state.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <optional>

#include "host/core/json_object.h"

namespace host::delivery {

namespace {

struct EventName {
  SpoolEvent::Kind kind;
  const char* name;
};

constexpr std::array<EventName, 5> kNames{{
    {SpoolEvent::Kind::Attempt, "attempt"},
    {SpoolEvent::Kind::Deferred, "deferred"},
    {SpoolEvent::Kind::Failed, "failed"},
    {SpoolEvent::Kind::Retry, "retry"},
    {SpoolEvent::Kind::Sent, "sent"},
}};

// No event is larger; a line that is, is none of ours and not looked at.
// An attempt takes its time: what another process has just written down may be newer than the time
// that a run goes by.
constexpr std::int64_t kClockSlack = 3600;
constexpr std::size_t kMaxLineBytes = std::size_t{16} << 10;

// Takes a flat object apart as it is read: no tree is built, which could run out of memory where
// nothing may fail.
class EventReader {
 public:
  explicit EventReader(SpoolEvent& event) : event_(event) {}

  bool isEvent() const { return named_; }

  bool start_object(std::size_t) { return depth_++ == 0; }
  bool key(std::string& name) {
    key_ = name;
    return true;
  }
  bool end_object() { return true; }
  bool start_array(std::size_t) { return false; }
  bool end_array() { return false; }
  bool null() { return depth_ == 1; }
  bool boolean(bool) { return depth_ == 1; }
  bool number_float(double, const std::string&) { return depth_ == 1; }
  bool binary(nlohmann::json::binary_t&) { return false; }
  bool number_integer(std::int64_t value) {
    if (key_ == "at") event_.at = value;
    if (key_ == "due") event_.due = value;
    if (key_ == "uncertain") event_.uncertain = value != 0;
    return depth_ == 1;
  }
  bool number_unsigned(std::uint64_t value) {
    if (key_ == "code") event_.code = static_cast<unsigned int>(value);
    return number_integer(static_cast<std::int64_t>(value));
  }
  bool string(std::string& value) {
    if (key_ == "text") event_.text = value;
    if (key_ != "event") return depth_ == 1;
    for (const EventName& known : kNames) {
      if (value != known.name) continue;
      event_.kind = known.kind;
      named_ = true;
    }
    return depth_ == 1;
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception&) {
    return false;
  }

 private:
  SpoolEvent& event_;
  std::string key_;
  int depth_ = 0;
  bool named_ = false;
};

std::optional<SpoolEvent> parseLine(std::string_view line) {
  if (line.size() > kMaxLineBytes || !line.starts_with('{')) return std::nullopt;
  SpoolEvent event;
  EventReader reader(event);
  const bool whole = nlohmann::json::sax_parse(line.begin(), line.end(), &reader);
  if (!whole || !reader.isEvent()) return std::nullopt;
  return event;
}

}  // namespace

const char* spoolEventName(SpoolEvent::Kind kind) {
  return kNames[static_cast<std::size_t>(kind)].name;
}

std::string writeSpoolEvent(const SpoolEvent& event) {
  core::JsonObject line;
  line.number("at", event.at).text("event", spoolEventName(event.kind));
  if (event.code != 0) line.number("code", event.code);
  if (!event.text.empty()) line.text("text", event.text);
  if (event.due != 0) line.number("due", event.due);
  if (event.uncertain) line.number("uncertain", 1);
  return line.line();
}

std::vector<SpoolEvent> parseSpoolLog(std::string_view log) {
  std::vector<SpoolEvent> events;
  while (!log.empty()) {
    const std::string_view line = log.substr(0, log.find('\n'));
    log.remove_prefix(std::min(log.size(), line.size() + 1));
    if (std::optional<SpoolEvent> event = parseLine(line)) events.push_back(std::move(*event));
  }
  return events;
}

void SpoolState::apply(const SpoolEvent& event) {
  switch (event.kind) {
    case SpoolEvent::Kind::Attempt:
      ++attempts;
      ++recentAttempts;
      uncertain = uncertain || open;
      open = true;
      lastAttempt = event.at;
      if (recentAttempts == 1) firstAttempt = event.at;
      return;
    case SpoolEvent::Kind::Deferred:
    case SpoolEvent::Kind::Failed:
      failed = event.kind == SpoolEvent::Kind::Failed;
      due = event.due;
      dueSaid = event.at;
      code = event.code;
      text = event.text;
      open = false;
      uncertain = uncertain || event.uncertain;
      return;
    case SpoolEvent::Kind::Retry:
      failed = false;
      due = event.at;
      dueSaid = event.at;
      retryAsked = event.at;
      recentAttempts = 0;
      firstAttempt = 0;
      return;
    case SpoolEvent::Kind::Sent:
      sent = true;
      return;
  }
}

SpoolState SpoolState::of(const std::vector<SpoolEvent>& events) {
  SpoolState state;
  for (const SpoolEvent& event : events) state.apply(event);
  return state;
}

std::int64_t RetrySchedule::pauseAfter(unsigned int attempt) const {
  std::int64_t pause = std::min(firstPause, longestPause);
  for (unsigned int count = 1; count < attempt && pause < longestPause; ++count) {
    pause = std::min(pause * 2, longestPause);
  }
  return pause;
}

std::int64_t dueTime(const SpoolEntry& entry, const SpoolState& state,
                     const RetrySchedule& schedule, std::int64_t now) {
  std::int64_t due = std::min(entry.queuedAt, now);
  if (state.dueSaid <= now + kClockSlack) due = std::max(due, state.due);
  // One that ends the process each time must not do so all the time.
  if (state.open && state.recentAttempts > 0 && state.lastAttempt <= now + kClockSlack) {
    due = std::max(due, state.lastAttempt + schedule.pauseAfter(state.recentAttempts));
  }
  // An administrator who asks for a retry does not want to wait for the window.
  const bool asked = state.retryAsked != 0 && state.due == state.retryAsked;
  if (asked) return due;
  const std::int64_t opening = nextOpening(entry.window, due);
  // Nobody was there while the window was open.
  const std::int64_t present = nextOpening(entry.window, std::max(opening, now));
  return opening <= now && present == now ? opening : present;
}

}  // namespace host::delivery
