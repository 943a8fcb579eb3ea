#include <set>
#include <string>
#include <utility>

#include "host/message/header_block.h"
#include "host/message/message.h"
#include "host/message/mime_values.h"
#include "host/message/render.h"
#include "host/message/tree_editor.h"

namespace host::message {

namespace {

/// Looks for lines that are delimiters under some boundary, in bytes that come in pieces.
class DelimiterSink final : public OvMsgSink {
 public:
  explicit DelimiterSink(const Boundaries& boundaries) : boundaries_(boundaries) {
    for (const std::string& boundary : boundaries) {
      longest_ = std::max(longest_, boundary.size() + 4);
    }
  }

  bool write(const char* data, std::size_t size) override {
    for (std::size_t i = 0; i < size; ++i) {
      if (data[i] == '\n') {
        endLine();
      } else if (line_.size() <= longest_) {
        line_ += data[i];
      } else if (!isSpace(data[i])) {
        overlong_ = true;
      }
    }
    return true;
  }

  /// The boundaries that occur, once all is written.
  const Boundaries& found() {
    endLine();
    return found_;
  }

 private:
  void endLine() {
    std::string_view line(line_);
    while (!line.empty() && isSpace(line.back())) line.remove_suffix(1);
    if (!overlong_ && line.starts_with("--")) {
      line.remove_prefix(2);
      note(line);
      if (line.ends_with("--")) note(line.substr(0, line.size() - 2));
    }
    line_.clear();
    overlong_ = false;
  }

  void note(std::string_view boundary) {
    if (boundaries_.count(boundary) != 0) found_.emplace(boundary);
  }

  const Boundaries& boundaries_;
  std::size_t longest_ = 2;
  std::string line_;
  bool overlong_ = false;
  Boundaries found_;
};

}  // namespace

Entity& TreeEditor::copyTree(const Entity& source) {
  message_.keepBuffersOf(source.message());
  Entity& top = copyNode(source);
  Entity* copy = &top;
  for (const Entity* from = &source; true;) {
    if (from->firstChild_ != nullptr) {
      from = from->firstChild_;
      Entity& child = copyNode(*from);
      child.parent_ = copy;
      copy->firstChild_ = copy->lastChild_ = &child;
      copy = &child;
      continue;
    }
    while (from != &source && from->nextSibling_ == nullptr) {
      from = from->parent_;
      copy = copy->parent_;
    }
    if (from == &source) return top;
    from = from->nextSibling_;
    Entity& sibling = copyNode(*from);
    sibling.parent_ = copy->parent_;
    sibling.previousSibling_ = copy;
    copy->nextSibling_ = sibling.parent_->lastChild_ = &sibling;
    copy = &sibling;
  }
}

Entity& TreeEditor::copyNode(const Entity& source) {
  Entity& copy = message_.newEntity();
  copy.lead_ = source.lead_;
  copy.fields_ = source.fields_;
  copy.blankLineLength_ = source.blankLineLength_;
  copy.body_ = source.body_;
  copy.tail_ = source.tail_;
  copy.ordinal_ = source.ordinal_;
  copy.lastOrdinal_ = source.lastOrdinal_;
  copy.kind_ = source.kind_;
  copy.defaultIsMessage_ = source.defaultIsMessage_;
  copy.needsBlankLine_ = source.needsBlankLine_;
  if (source.block_ != nullptr && source.block_->isModified()) {
    const std::string_view blankLine(source.fields_.data() + source.fields_.size(),
                                     source.blankLineLength_);
    std::string header = source.headerText();
    const std::size_t length = header.size();
    header.append(blankLine);
    const std::string_view kept = message_.keep(std::move(header));
    copy.fields_ = kept.substr(0, length);
  }
  return copy;
}

Boundaries boundariesIn(const Entity& part, const Boundaries& boundaries) {
  DelimiterSink sink(boundaries);
  Renderer(sink).write(part, true);
  return sink.found();
}

bool holdsDelimiter(std::string_view bytes, const Boundaries& boundaries) {
  // A line that begins with two dashes is rare: the sink sees those only.
  DelimiterSink sink(boundaries);
  for (std::size_t at = 0; at < bytes.size() && !boundaries.empty();) {
    const std::size_t lf = bytes.find('\n', at);
    const std::size_t next = lf == std::string_view::npos ? bytes.size() : lf + 1;
    if (bytes.substr(at, 2) == "--") sink.write(bytes.data() + at, next - at);
    at = next;
  }
  return !sink.found().empty();
}

}  // namespace host::message
