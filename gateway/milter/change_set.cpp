#include "gateway/milter/change_set.h"

#include <algorithm>
#include <unordered_set>

#include "host/message/ascii.h"
#include "host/message/entity.h"

namespace gateway::milter {
namespace {

using host::message::Envelope;
using host::message::Message;

/// Where the header of \p mail ends: at the first empty line.
std::size_t headerBytesOf(std::string_view mail) {
  std::size_t line = 0;
  while (line < mail.size()) {
    if (mail[line] == '\n' || mail.substr(line, 2) == "\r\n") return line;
    const std::size_t lineFeed = mail.find('\n', line);
    if (lineFeed == std::string_view::npos) break;
    line = lineFeed + 1;
  }
  return mail.size();
}

std::string_view behindBlankLine(std::string_view mail, std::size_t headerBytes) {
  mail.remove_prefix(headerBytes);
  if (mail.starts_with('\r')) mail.remove_prefix(1);
  if (mail.starts_with('\n')) mail.remove_prefix(1);
  return mail;
}

/// Compares a body with another one, piece by piece.
class ComparingSink final : public BodySink {
 public:
  ComparingSink(std::size_t headerBytes, std::string_view expected)
      : BodySink(headerBytes), expected_(expected) {}
  bool isSame() const { return same_ && expected_.empty(); }

 private:
  bool writeBody(std::string_view piece) override {
    same_ = same_ && expected_.starts_with(piece);
    if (same_) expected_.remove_prefix(piece.size());
    return same_;
  }

  std::string_view expected_;
  bool same_ = true;
};

/// The addresses of \p list that are not in \p other, each once.
std::vector<std::string> missingFrom(const std::vector<std::string>& other,
                                     const std::vector<std::string>& list) {
  std::unordered_set<std::string> known;
  for (const std::string& address : other) known.insert(host::message::lowered(address));
  std::vector<std::string> missing;
  for (const std::string& address : list) {
    if (known.insert(host::message::lowered(address)).second) missing.push_back(address);
  }
  return missing;
}

void addEnvelopeChanges(const Envelope& before, const Envelope& after, ChangeSet& changes) {
  changes.removed = missingFrom(after.recipients, before.recipients);
  changes.added = missingFrom(before.recipients, after.recipients);
  if (after.sender && after.sender != before.sender) changes.sender = after.sender;
}

bool addContentChanges(const Message& message, ChangeSet& changes) {
  if (!message.changed()) return true;
  const std::string_view received = message.receivedBytes();
  const std::size_t headerBytes = headerBytesOf(received);
  const auto before = splitHeader(received.substr(0, headerBytes));
  const std::string header = headerOf(message);
  const auto after = splitHeader(header);
  if (!before || !after) return false;
  changes.headers = headerEdits(*before, *after);
  ComparingSink body(header.size(), behindBlankLine(received, headerBytes));
  const bool rendered = message.render(body) == 0;
  changes.body = !body.isSame();
  // One that differs makes the sink stop; anything else has to come to the end.
  return (rendered || changes.body) && body.isDivided();
}

}  // namespace

std::string headerOf(const Message& message) {
  const host::message::Entity* root = message.firstEntity();
  return root == nullptr ? std::string() : root->headerText();
}

bool BodySink::write(const char* data, std::size_t size) {
  std::string_view piece(data, size);
  const std::size_t skipped = std::min(headerLeft_, piece.size());
  headerLeft_ -= skipped;
  piece.remove_prefix(skipped);
  while (!piece.empty() && blankLineState_ != State::Past) {
    const bool isCr = piece.front() == '\r' && blankLineState_ == State::Begin;
    const bool isLf = piece.front() == '\n';
    if (!isCr && !isLf) blankLineState_ = State::Wrong;
    if (blankLineState_ == State::Wrong) return false;
    blankLineState_ = isCr ? State::BehindCr : State::Past;
    piece.remove_prefix(1);
  }
  return piece.empty() || writeBody(piece);
}

std::optional<ChangeSet> changesOf(const Message& message, const Envelope& before) {
  ChangeSet changes;
  if (!addContentChanges(message, changes)) return std::nullopt;
  addEnvelopeChanges(before, message.envelope(), changes);
  return changes;
}

std::vector<std::string> ChangeSet::names() const {
  std::vector<std::string> texts;
  for (const HeaderEdit& edit : headers) {
    const char* word = edit.kind == HeaderEdit::Kind::Insert   ? "insert "
                       : edit.kind == HeaderEdit::Kind::Delete ? "delete "
                                                               : "change ";
    texts.push_back(word + edit.name);
  }
  if (body) texts.emplace_back("body");
  if (sender) texts.push_back("sender " + *sender);
  for (const std::string& address : removed) texts.push_back("remove " + address);
  for (const std::string& address : added) texts.push_back("add " + address);
  return texts;
}

}  // namespace gateway::milter
