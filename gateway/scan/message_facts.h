// What a message holds, as rules ask for it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace host::message {
class Entity;
class HeaderField;
class Message;
}  // namespace host::message

namespace gateway::scan {

/// One attachment: a part with a file name, one declared as an attachment, or one that is neither
/// text nor a multipart.
struct Attachment {
  const host::message::Entity* entity = nullptr;  ///< borrowed from the message
  std::size_t number = 0;                         ///< of the entity, the root being 1
  std::vector<std::string> fileNames;  ///< all that are declared, UTF-8; see declaredFileNames
  std::vector<std::string> types;      ///< all that are declared, lower-cased: "application/pdf"

  /// The likeliest name; empty when none is declared.
  const std::string& fileName() const;
  /// The content type in effect.
  const std::string& type() const;
};

/// The facts of one message, each found when it is first asked for and kept. Reads the message
/// only, and must not outlive it or be asked anything once it has changed. Not shared between
/// threads.
class MessageFacts {
 public:
  /// \param message  borrowed
  explicit MessageFacts(const host::message::Message& message) : message_(message) {}
  MessageFacts(const MessageFacts&) = delete;
  MessageFacts& operator=(const MessageFacts&) = delete;

  /// In bytes.
  std::size_t size() const;
  /// Every Subject field, decoded, in UTF-8; one empty text when there is none.
  const std::vector<std::string>& subjects() const;
  /// The values of all header fields named \p name (lower case), unfolded and decoded, in UTF-8.
  const std::vector<std::string>& headers(const std::string& name) const;
  /// The envelope sender without brackets; empty for the null sender.
  const std::string& sender() const;
  /// The envelope recipients without brackets.
  const std::vector<std::string>& recipients() const;
  /// In document order, those inside nested messages included.
  const std::vector<Attachment>& attachments() const;
  /// The size of one of them once decoded, in bytes.
  std::size_t attachmentSize(std::size_t index) const;

 private:
  const host::message::Message& message_;
  mutable std::optional<std::vector<Attachment>> attachments_;
  mutable std::unordered_map<std::size_t, std::size_t> attachmentSizes_;
  mutable std::unordered_map<std::string, std::vector<std::string>> headers_;
};

}  // namespace gateway::scan
