// The raw list of the actions taken on a message, as the engine keeps it in the token map.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "library/framework/kavi_action.h"

namespace host::core {

/// One action taken, with what it was applied to (a time, an area, a recipient); may be empty.
struct TakenAction {
  KaviAction::ActionType type = KaviAction::Delete;
  std::string detail;
};

/// Appends one action to a raw list. The list is
///
///     list = [ item *( ";" item ) ]
///     item = code [ ":" detail ]       the type code in decimal; no ":" when the detail is empty
///
/// with "%", ";", ":" and every byte outside printable ASCII in the detail written as "%" and two
/// hexadecimal digits, so that it can travel as a C string. "1", "12:08%3A30;1" are such lists.
KAVI_API void appendTakenAction(std::string& raw, const TakenAction& action);

/// Reads a raw list. \return nothing when the text is none, or names an unassigned type code.
KAVI_API std::optional<std::vector<TakenAction>> parseTakenActions(std::string_view raw);

}  // namespace host::core
