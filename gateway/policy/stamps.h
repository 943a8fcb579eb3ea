// Stamps of a policy: entries of `stamps`, and the records made of them.
#pragma once

#include <string>
#include <string_view>

#include "gateway/policy/named_objects.h"

namespace gateway::policy {

/// The longest text of a stamp, in bytes.
inline constexpr std::size_t kMaxStampText = 65'536;

inline constexpr std::string_view kStampKeys[] = {
    "name", "text", "file", "position", "signed_and_tnef", "note"};

// Members of ObjectKind (gateway/policy/named_objects.h).

/// The text stands in the entry or in a file of its own; a line break at its very end is not part
/// of it. The others become the record's fields.
bool encodeStamp(const ObjectEntry& entry, std::string& setting, const FaultSink& fault);
bool decodeStamp(const std::string& setting, EntryKeys& keys);
std::string doubtStamp(const std::string& setting);

}  // namespace gateway::policy
