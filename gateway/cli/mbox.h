// Taking an mbox apart.
//
// A message begins at a "From " line (RFC 4155 appendix A) at the start of the file or behind a
// blank line, when that line ends in a date and a header field follows: text that happens to begin
// with "From " does not part messages. The "From " line stays with its message, ">From " stays as
// it is, so that all messages and what stands between them, put together, are the file again.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "gateway/cli/byte_source.h"

namespace gateway::cli {

struct MboxMessage {
  std::string bytes;
  std::string separator;  ///< the blank line behind the message; empty behind the last
};

/// Reads one file, which may be an mbox or a single message.
class MboxReader {
 public:
  /// \param source  borrowed
  explicit MboxReader(ByteSource& source) : source_(source) {}

  /// The next message; nothing at the end. What is no mbox is one message, also when it is empty.
  /// Time is linear in the file's size, memory in that of the largest message.
  std::optional<MboxMessage> next();

  /// Whether there was more than one message so far, or more is known to come.
  bool isMbox() const { return isMbox_; }
  const std::string& error() const { return source_.error(); }

 private:
  static constexpr std::size_t kNone = std::string_view::npos;

  std::string_view rest() const { return std::string_view(buffer_).substr(begin_); }
  bool fill();
  void ensure(std::size_t size);
  bool beginsMessage(std::size_t offset);
  std::size_t findNext();

  ByteSource& source_;
  std::string buffer_;
  std::size_t begin_ = 0;  ///< of what was not handed out yet
  bool started_ = false;
  bool divides_ = false;  ///< the file begins with a "From " line
  bool isMbox_ = false;
  bool atEnd_ = false;
};

/// Whether \p line (without its line break) is the "From " line of an mbox.
bool isMboxLine(std::string_view line);

}  // namespace gateway::cli
