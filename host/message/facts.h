// What more than one reader asks of a message.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>

#include "library/platform/api.h"

namespace host::message {

class Entity;
class Message;

/// The subject in UTF-8; nothing when the message has none. Bytes that no encoded word explains are
/// read in the first of \p charsets (nulls are passed over) in which they are valid, then as UTF-8,
/// then as ISO-8859-1.
KAVI_API std::optional<std::string> decodedSubject(
    const Message& message, std::initializer_list<const char*> charsets = {});

/// The first \p limit bytes of the content of a text part, in UTF-8. Bytes that are no text in its
/// declared charset are read as UTF-8, or else as ISO-8859-1.
KAVI_API std::string contentAsUtf8(const Entity& entity, std::size_t limit);

/// Whether \p entity is what a reader sees as the body of the mail: a text outside nested messages
/// that is not declared an attachment and, unless it is the whole mail or one of its alternatives,
/// has no file name.
KAVI_API bool isBodyText(const Entity& entity);

}  // namespace host::message
