#include "gateway/cli/complaints.h"

#include <cstddef>
#include <cstdio>
#include <mutex>

namespace gateway::cli {
namespace {

constexpr std::size_t kMostKept = 100;

struct Kept {
  std::mutex mutex;
  bool wanted = false;
  std::size_t count = 0;
  std::string lines;
};

Kept& kept() {
  static Kept only;
  return only;
}

void keep(const std::string& line) {
  Kept& all = kept();
  const std::lock_guard lock(all.mutex);
  if (!all.wanted || ++all.count > kMostKept) return;
  if (!all.lines.empty()) all.lines += '\n';
  all.lines += line;
}

// Where standard error cannot be written there is nobody left to be told.
void write(const std::string& line) {
  static_cast<void>(std::fprintf(stderr, "%s\n", line.c_str()));
}

}  // namespace

void complain(const std::string& text) {
  write("kavi: " + text);
  keep(text);
}

void complainOfPlace(const std::string& line) {
  write(line);
  keep(line);
}

void complain(const policy::Diagnostics& diagnostics) {
  using Severity = policy::Diagnostic::Severity;
  for (const policy::Diagnostic& diagnostic : diagnostics.all()) {
    const std::string line = diagnostics.text(diagnostic);
    write(line);
    if (diagnostic.severity == Severity::Error) keep(line);
  }
  if (diagnostics.errorCount() > diagnostics.all().size()) {
    complainOfPlace("… and " + std::to_string(diagnostics.errorCount() - diagnostics.all().size()) +
                    " more errors");
  }
}

void remark(const std::string& text) { write("kavi: " + text); }

void keepComplaints() {
  const std::lock_guard lock(kept().mutex);
  kept().wanted = true;
}

std::string keptComplaints() {
  const std::lock_guard lock(kept().mutex);
  const std::size_t more = kept().count - (kept().count < kMostKept ? kept().count : kMostKept);
  return more == 0 ? kept().lines : kept().lines + "\n… and " + std::to_string(more) + " more";
}

}  // namespace gateway::cli
