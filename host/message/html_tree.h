// Where the body of an HTML document is, by the elements that a reader builds from it. The only
// door to the HTML library.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "library/platform/ov_msg_mail_message.h"

namespace host::message {

/// The top of the body is behind its start tag, or before its first content where that tag is
/// missing; the end is as `outlineOf` says.
/// \return nothing when the document has no body, or building its elements takes more memory than
///   any document that somebody wrote.
std::optional<std::size_t> treePlace(std::string_view document, OvMsgInsertPlace place);

}  // namespace host::message
