// What may stand in an SMTP command.
#pragma once

#include <string_view>

#include "host/delivery/adapter_error.h"
#include "host/delivery/envelope.h"
#include "library/platform/api.h"

namespace host::delivery {

/// Whether \p address, without brackets, can be a recipient. Everything that could end the command
/// or add a parameter to it is refused: control characters, brackets, and white space outside a
/// quoted local part. \return None, BadAddress, or Utf8Address for one that is not ASCII.
KAVI_API AdapterError checkMailbox(std::string_view address);

/// The same for every address of \p envelope; the sender may be empty or missing.
/// \param faulty  receives the address that is refused; otherwise left as it was
/// \return also NoRecipients.
KAVI_API AdapterError checkEnvelope(const Envelope& envelope, std::string_view& faulty);

/// Whether \p host is a host name or an address: letters, digits, "-", "_" and ".", or an IPv6
/// address without brackets. \return None or BadAddress.
KAVI_API AdapterError checkHost(std::string_view host);

}  // namespace host::delivery
