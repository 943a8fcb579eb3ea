// Looking things up in an entity's header, for those outside the message library.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "library/platform/api.h"

namespace host::message {

class Entity;
class HeaderField;

/// All fields named \p name (case ignored), in order. Borrowed: valid until the header changes.
KAVI_API std::vector<const HeaderField*> fieldsNamed(const Entity& entity, std::string_view name);

/// The addresses of the mailboxes in a field, those of groups included, without names and brackets.
KAVI_API std::vector<std::string> addressList(const HeaderField& field);

}  // namespace host::message
