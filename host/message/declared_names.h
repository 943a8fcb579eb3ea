// Everything that an entity says it is called, or is.
//
// Readers differ in what they make of a header that says two things: the first field of a name or
// the last, `name` or `filename`, the plain parameter or the extended one. Whoever has to keep a
// file out cannot know who will read the mail, and asks for all of them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "library/platform/api.h"

namespace host::message {

class Entity;

/// The file names that readers may find in the entity's Content-Disposition and Content-Type
/// fields: of every field, every `filename` and `name`, plain, quoted, in encoded words (RFC 2047),
/// extended or in pieces (RFC 2231), whole or cut where a reader may stop. In UTF-8, each once; the
/// one that `Entity::fileNameText` gives comes first. Linear in the header.
KAVI_API std::vector<std::string> declaredFileNames(const Entity& entity);

/// The names in one field value, folds undone.
std::vector<std::string> fileNamesIn(std::string_view unfolded);
/// The first name of the first field that has one; empty when none has.
std::string firstFileName(const Entity& entity);

/// The content types that the entity's Content-Type fields declare, lower case, each once; the one
/// in effect comes first.
KAVI_API std::vector<std::string> declaredContentTypes(const Entity& entity);

/// The dispositions that its Content-Disposition fields declare, in the same way.
KAVI_API std::vector<std::string> declaredDispositions(const Entity& entity);

}  // namespace host::message
