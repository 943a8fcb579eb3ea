// What is wrong with a policy, and where.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace gateway::policy {

/// One fault or doubt. `message` says what and the remedy.
struct Diagnostic {
  enum class Severity { Error, Warning };

  Severity severity = Severity::Error;
  int line = 0;      ///< counted from 1; 0 when no line is to blame
  std::string rule;  ///< "rule 15"; empty outside a rule
  std::string message;
};

/// The diagnostics of one policy, in the order in which they were found.
class Diagnostics {
 public:
  /// \param source  what messages call the policy: the file's name as the caller wrote it
  explicit Diagnostics(std::string source) : source_(std::move(source)) {}

  void error(int line, std::string rule, std::string message);
  void warning(int line, std::string rule, std::string message);

  bool hasErrors() const { return errors_ != 0; }
  std::size_t errorCount() const { return errors_; }
  std::size_t warningCount() const { return all_.size() - kept_; }
  const std::vector<Diagnostic>& all() const { return all_; }
  const std::string& source() const { return source_; }

  /// "policy.yaml:12: rule 15: unknown action …"; warnings say "warning: " behind the place.
  /// One line of UTF-8.
  std::string text(const Diagnostic& diagnostic) const;
  /// All of them so.
  std::vector<std::string> texts() const;

 private:
  /// Errors kept; what a broken file adds beyond them is counted only.
  static constexpr std::size_t kMaxErrors = 100;

  std::string source_;
  std::vector<Diagnostic> all_;
  std::size_t errors_ = 0;
  std::size_t kept_ = 0;
};

}  // namespace gateway::policy
