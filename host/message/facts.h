// What a scanner wants to know about a message, as plain values.
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/message/mime_values.h"
#include "library/platform/api.h"

namespace host::message {

class Entity;
class Message;

/// The subject in UTF-8; nothing when the message has none. Bytes that no encoded word explains are
/// read in the first of \p charsets (nulls are passed over) in which they are valid, then as UTF-8,
/// then as ISO-8859-1.
KAVI_API std::optional<std::string> decodedSubject(
    const Message& message, std::initializer_list<const char*> charsets = {});

/// The values of every field of the root entity that is named \p name (case ignored), in order,
/// unfolded and decoded to UTF-8. Empty without a root.
KAVI_API std::vector<std::string> decodedFields(const Message& message, std::string_view name);

/// The mailboxes in every field of the root entity that is named \p name, in order.
KAVI_API std::vector<mime::Address> addressesIn(const Message& message, std::string_view name);

/// A part that is not the mail's body text or a container of parts.
struct Attachment {
  const Entity* entity;     ///< borrowed from the message
  std::string fileName;     ///< UTF-8; empty when none is declared
  std::string contentType;  ///< as declared, without parameters; empty when none is declared
};

/// Every entity that has a file name, is declared an attachment, holds a message, or is a leaf but
/// no text and not inline by default, in document order, nested messages included.
KAVI_API std::vector<Attachment> attachments(const Message& message);

/// Whether \p entity is what a reader sees as the body of the mail: a text outside nested messages
/// that has no file name and is not declared an attachment.
KAVI_API bool isBodyText(const Entity& entity);

}  // namespace host::message
