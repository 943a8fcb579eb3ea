// Mail addresses as the envelope needs them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/message/mime_values.h"
#include "library/platform/api.h"

namespace host::message {

/// Splits `Name <address>`, `<address>` or `address`; the name decoded to UTF-8, the address as it
/// stands. An empty text, or "<>", gives the empty address. A text
/// that holds control bytes is not split: no part of it is an address.
mime::Address splitMailbox(std::string_view text);

/// The parts between the ";" of \p text. One within quotes divides nothing: quoted local parts may
/// hold any character (RFC 5321 section 4.1.2).
std::vector<std::string_view> dividedAddresses(std::string_view text);

/// Whether \p address can stand between the brackets of an SMTP command: not empty, no control
/// bytes and, outside quotes, no brackets, white space, comma or semicolon. A missing domain is
/// no fault: mail fetched from a mailbox has recipients without one.
KAVI_API bool isMailAddress(std::string_view address);

}  // namespace host::message
