#include "gateway/policy/diagnostics.h"

#include "host/core/text_escape.h"

namespace gateway::policy {

void Diagnostics::error(int line, std::string rule, std::string message) {
  ++errors_;
  if (kept_ == kMaxErrors) return;
  ++kept_;
  all_.push_back({Diagnostic::Severity::Error, line, std::move(rule), std::move(message)});
}

void Diagnostics::warning(int line, std::string rule, std::string message) {
  all_.push_back({Diagnostic::Severity::Warning, line, std::move(rule), std::move(message)});
}

std::string Diagnostics::text(const Diagnostic& diagnostic) const {
  std::string text = source_;
  if (diagnostic.line > 0) text += ":" + std::to_string(diagnostic.line);
  text += ": ";
  if (diagnostic.severity == Diagnostic::Severity::Warning) text += "warning: ";
  if (!diagnostic.rule.empty()) text += diagnostic.rule + ": ";
  // What a store holds may be any bytes.
  return host::core::printable(text + diagnostic.message);
}

std::vector<std::string> Diagnostics::texts() const {
  std::vector<std::string> texts;
  for (const Diagnostic& diagnostic : all_) texts.push_back(text(diagnostic));
  return texts;
}

}  // namespace gateway::policy
