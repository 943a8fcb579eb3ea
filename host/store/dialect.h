// The schema's texts in the words of one database.
#pragma once

#include <string>
#include <string_view>

namespace host::store {

/// \p text with the given types in place of {bytes} and {row}.
std::string withTypes(std::string_view text, std::string_view bytes, std::string_view row);

}  // namespace host::store
