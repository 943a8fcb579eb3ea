// Writing a message into a file.
#pragma once

#include <cstddef>

#include "host/core/atomic_file.h"
#include "host/delivery/adapter_error.h"
#include "library/platform/ov_msg_mail_message.h"

namespace host::delivery {

/// Writes \p msg as it stands now to the end of \p file.
/// \param written  receives the number of bytes
AdapterError writeMessage(const OvMsgMailMessage& msg, core::AtomicFile& file,
                          std::size_t& written);

}  // namespace host::delivery
