// Putting lines into an HTML document.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/message/insertion.h"
#include "library/platform/ov_msg_mail_message.h"

namespace host::message {

/// Where and how \p lines (UTF-8, line breaks LF) go into a document: escaped, with <br> for the
/// breaks between them, as one block inside the body.
/// \param document  ASCII characters stand as themselves, others as any byte above
/// \param from      behind a byte order mark
TextEdit htmlInsertion(std::string_view document, std::size_t from, std::string_view lines,
                       OvMsgInsertPlace place);

/// \p html with each character that is not ASCII as a reference.
std::string withReferences(std::string_view html);

/// The charset that the document declares for itself; empty when it does not.
std::string_view charsetInHtml(std::string_view document, std::size_t from);

/// What to change so that the document's own declarations, where it has any, say \p charset.
std::vector<TextEdit> charsetCorrections(std::string_view document, std::size_t from,
                                         std::string_view charset);

}  // namespace host::message
