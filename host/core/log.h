// The process log.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "library/platform/log_msg.h"

namespace host::core {

enum class LogFormat { Text, Json };
enum class LogTarget { Stderr, Syslog };

struct LogOptions {
  int level = 1;  ///< 1 failures, 2 and notices, 3 and detail; 0 writes nothing
  LogFormat format = LogFormat::Text;
  LogTarget target = LogTarget::Stderr;
  std::string name = "kavi";  ///< the program's name, as syslog shows it
};

struct LogLine {
  int level = 0;
  std::string text;  ///< printable, one line
};

/// Writes log lines, each whole and on one line: control characters and bytes that are no UTF-8
/// are escaped ("\n", "\x1B"). A text line is "time name[pid] Ln text", a JSON line an object with
/// "time", "name", "pid", "level" and "text". Syslog gets levels 1, 2, 3 as err, info, debug
/// (facility mail); one process has one syslog log. Nothing throws; a line that cannot be written
/// is dropped. Every operation but construction is safe from any thread.
class KAVI_API ProcessLog final : public Kavi::LogMsg {
 public:
  explicit ProcessLog(const LogOptions& options = {});
  ~ProcessLog() override;
  ProcessLog(const ProcessLog&) = delete;
  ProcessLog& operator=(const ProcessLog&) = delete;

  /// The most verbose level that somebody wants from this thread: the log's own, or that of a
  /// LogCapture on it.
  int getLevel() const override;

  /// As declared. Texts of any length are written whole.
  void write(int level, const char* format, ...) override __attribute__((format(printf, 3, 4)));

 private:
  friend class LogCapture;
  void writeLine(int level, const std::string& text);

  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// While it lives, collects the lines that this thread writes to a log, on top of what goes to the
/// log's target. Captures nest; each collects. Destroyed on its thread, in reverse order.
class KAVI_API LogCapture {
 public:
  /// \param level  the most verbose level to collect; the log answers at least this level to this
  ///   thread, while its target still gets its own levels only.
  explicit LogCapture(const ProcessLog& log, int level = 3);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  const std::vector<LogLine>& lines() const { return lines_; }

 private:
  friend class ProcessLog;
  const ProcessLog& log_;
  int level_;
  LogCapture* outer_;
  std::vector<LogLine> lines_;
};

}  // namespace host::core
