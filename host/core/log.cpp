#include "host/core/log.h"

#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/sinks/syslog_sink.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "host/core/guard.h"
#include "host/core/json_object.h"
#include "host/core/text_escape.h"

namespace host::core {

namespace {

constexpr int kMaxLevel = 3;
constexpr std::size_t kShortLine = 2048;

// A text line's head; spdlog writes the time and the process id.
constexpr char kTextPattern[] = "%Y-%m-%dT%H:%M:%S.%e%z %n[%P] %v";
constexpr char kJsonPattern[] = R"({"time":"%Y-%m-%dT%H:%M:%S.%e%z",%v,"pid":%P})";

thread_local LogCapture* innermostCapture = nullptr;

spdlog::level::level_enum spdlogLevel(int level) {
  if (level <= 1) return spdlog::level::err;
  return level == 2 ? spdlog::level::info : spdlog::level::debug;
}

spdlog::sink_ptr makeSink(const LogOptions& options) {
  const bool json = options.format == LogFormat::Json;
  if (options.target == LogTarget::Syslog) {
    // Syslog has its own time, name and process id; only the JSON form repeats them.
    auto sink =
        std::make_shared<spdlog::sinks::syslog_sink_mt>(options.name, LOG_PID, LOG_MAIL, json);
    if (json) {
      sink->set_formatter(std::make_unique<spdlog::pattern_formatter>(
          kJsonPattern, spdlog::pattern_time_type::local, ""));
    }
    return sink;
  }
  auto sink = std::make_shared<spdlog::sinks::stderr_sink_mt>();
  sink->set_pattern(json ? kJsonPattern : kTextPattern);
  return sink;
}

}  // namespace

struct ProcessLog::Impl {
  explicit Impl(const LogOptions& options)
      : level(std::clamp(options.level, 0, kMaxLevel)),
        json(options.format == LogFormat::Json),
        name(options.name),
        logger(options.name, makeSink(options)) {
    logger.set_level(spdlog::level::trace);
    logger.set_error_handler([](const std::string&) {});
  }

  // What stands for %v in the sink's pattern.
  std::string payload(int lineLevel, const std::string& text) const {
    if (!json) return "L" + std::to_string(lineLevel) + " " + text;
    return "\"name\":" + jsonText(name) + ",\"level\":" + std::to_string(lineLevel) +
           ",\"text\":" + jsonText(text);
  }

  const int level;
  const bool json;
  const std::string name;
  spdlog::logger logger;
};

ProcessLog::ProcessLog(const LogOptions& options) : impl_(std::make_unique<Impl>(options)) {}
ProcessLog::~ProcessLog() = default;

int ProcessLog::getLevel() const {
  int level = impl_->level;
  for (const LogCapture* capture = innermostCapture; capture != nullptr;
       capture = capture->outer_) {
    if (&capture->log_ == this) level = std::max(level, capture->level_);
  }
  return level;
}

void ProcessLog::write(int level, const char* format, ...) {
  level = std::clamp(level, 1, kMaxLevel);
  if (format == nullptr || level > getLevel()) return;
  char shortLine[kShortLine];
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(shortLine, sizeof shortLine, format, arguments);
  va_end(arguments);
  const auto size = static_cast<std::size_t>(std::max(length, 0));
  std::string text;
  guardedVoid([&] {
    if (length < 0) {
      text = format;  // a conversion failed: the format says at least where
    } else if (size < sizeof shortLine) {
      text.assign(shortLine, size);
    } else {
      text.resize(size);
    }
  });
  if (size >= sizeof shortLine && text.size() == size) {
    va_start(arguments, format);
    static_cast<void>(std::vsnprintf(text.data(), size + 1, format, arguments));
    va_end(arguments);
  }
  if (text.size() < size) return;  // no memory: better no line than half of one
  guardedVoid([&] { writeLine(level, text); });
}

void ProcessLog::writeLine(int level, const std::string& text) {
  const std::string line = printable(text);
  for (LogCapture* capture = innermostCapture; capture != nullptr; capture = capture->outer_) {
    if (&capture->log_ == this && level <= capture->level_)
      capture->lines_.push_back({level, line});
  }
  if (level <= impl_->level) impl_->logger.log(spdlogLevel(level), impl_->payload(level, line));
}

LogCapture::LogCapture(const ProcessLog& log, int level)
    : log_(log), level_(std::clamp(level, 0, kMaxLevel)), outer_(innermostCapture) {
  innermostCapture = this;
}

LogCapture::~LogCapture() { innermostCapture = outer_; }

}  // namespace host::core
