// Identifiers of messages.
#pragma once

#include <string>

namespace host::message {

/// 32 characters from [0-9a-z]: random ones first, so that folders named for the first two fill
/// evenly, then the time in microseconds. Two calls on any machines never give the same.
std::string newMessageId();

}  // namespace host::message
