// The progress line of a long run.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace gateway::cli {

/// One line on standard error, drawn a few times a second and cleared when other text is due.
/// Does nothing when it is switched off.
class Progress {
 public:
  /// \param total  the number of inputs
  Progress(bool on, std::size_t total) : on_(on), total_(total) {}
  ~Progress() { clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// \param done  inputs done so far
  void show(std::size_t done, const std::string& brief);
  /// Takes the line off the terminal.
  void clear();

 private:
  bool on_;
  std::size_t total_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point last_{};
};

}  // namespace gateway::cli
