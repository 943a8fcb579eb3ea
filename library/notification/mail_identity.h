// The date and the identifier that this product's own mails carry.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace library {

/// \p now as a "Date" field has it (RFC 5322 section 3.3), in local time: "Sat, 21 Nov 2026
/// 09:30:00 +0900". Empty when the local time cannot be had.
std::string mailDate(std::time_t now);

/// "<SCANNER-TIME-MESSAGE@HOST>": the numbers in hexadecimal without leading zeros, the time's two
/// halves one behind the other. Cut to 1,023 characters.
/// \param time  microseconds since the epoch
std::string mailMessageId(unsigned int scannerId, std::uint64_t time, const char* messageId,
                          const char* host);

/// The present time in microseconds since the epoch.
std::uint64_t microsecondsNow();

/// The name of this host, of which 255 bytes count; empty when it cannot be had.
std::string hostName();

}  // namespace library
