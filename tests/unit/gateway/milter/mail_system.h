// A mail system that applies milter operations as Postfix does.
#pragma once

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "gateway/milter/change_set.h"
#include "gateway/milter/header_edits.h"
#include "host/message/ascii.h"

namespace gateway::milter {

/// Keeps a header with the system's own trace field in front, which the milter does not see. Each
/// operation meets the header as the operations before it left it. One that makes no sense throws.
class MailSystem {
 public:
  explicit MailSystem(const std::vector<HeaderLine>& header) {
    lines_.push_back({"Received", " from here"});
    lines_.insert(lines_.end(), header.begin(), header.end());
  }

  void apply(const std::vector<HeaderEdit>& edits) {
    for (const HeaderEdit& edit : edits) apply(edit);
  }

  /// The header as a milter would see it now.
  std::vector<HeaderLine> header() const { return {lines_.begin() + 1, lines_.end()}; }

 private:
  void apply(const HeaderEdit& edit) {
    if (edit.kind == HeaderEdit::Kind::Insert) {
      const std::size_t place = std::min(edit.index, lines_.size());
      lines_.insert(lines_.begin() + static_cast<std::ptrdiff_t>(place), {edit.name, edit.value});
      return;
    }
    // An empty value is how the protocol says "delete".
    if (edit.kind == HeaderEdit::Kind::Change && edit.value.empty()) {
      throw std::logic_error("a change of " + edit.name + " that deletes it");
    }
    std::size_t seen = 0;
    for (std::size_t i = 1; i < lines_.size(); ++i) {
      if (!host::message::equalsIgnoreCase(lines_[i].name, edit.name)) continue;
      if (++seen != edit.index) continue;
      if (edit.kind == HeaderEdit::Kind::Delete) {
        lines_.erase(lines_.begin() + static_cast<std::ptrdiff_t>(i));
      } else {
        lines_[i] = {edit.name, edit.value};
      }
      return;
    }
    throw std::logic_error("no field " + std::to_string(edit.index) + " named " + edit.name);
  }

  std::vector<HeaderLine> lines_;
};

/// Recipients as Postfix keeps them: taken out without regard to case, all that are the same.
inline std::vector<std::string> applyRecipients(std::vector<std::string> recipients,
                                                const ChangeSet& changes) {
  for (const std::string& address : changes.removed) {
    const auto isThis = [&](const std::string& each) {
      return host::message::equalsIgnoreCase(each, address);
    };
    if (std::erase_if(recipients, isThis) == 0) {
      throw std::logic_error("no recipient " + address);
    }
  }
  recipients.insert(recipients.end(), changes.added.begin(), changes.added.end());
  return recipients;
}

class PlainBodySink final : public BodySink {
 public:
  using BodySink::BodySink;
  std::string text;

 private:
  bool writeBody(std::string_view piece) override {
    text += piece;
    return true;
  }
};

/// What the mail system makes of the received message: the received body unless a new one is sent.
inline std::string delivered(const host::message::Message& message, const ChangeSet& changes) {
  const std::string received(message.receivedBytes());
  const std::size_t blank = received.starts_with("\r\n") ? 0 : received.find("\r\n\r\n") + 2;
  MailSystem system(splitHeader(std::string_view(received).substr(0, blank)).value());
  system.apply(changes.headers);
  std::string text;
  for (const HeaderLine& line : system.header()) {
    text += line.name + ":";
    for (const char c : line.value) text += c == '\n' ? std::string("\r\n") : std::string(1, c);
    text += "\r\n";
  }
  if (!changes.body) return text + received.substr(blank);
  PlainBodySink body(headerOf(message).size());
  if (message.render(body) != 0) throw std::logic_error("the message cannot be rendered");
  return text + "\r\n" + body.text;
}

}  // namespace gateway::milter
