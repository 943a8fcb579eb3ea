// Notifications of a policy: entries of `notifications`, and the records made of them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "gateway/policy/condition.h"
#include "gateway/policy/named_objects.h"

namespace gateway::policy {

/// The longest body of a notification, in bytes; subjects and traps are one line of at most
/// kMaxNotificationLine.
inline constexpr std::size_t kMaxNotificationBody = 65'536;
inline constexpr std::size_t kMaxNotificationLine = 4'096;

inline constexpr std::string_view kNotificationKeys[] = {
    "name", "sender",        "recipients",        "subject", "body",      "body_file",
    "trap", "notify_sender", "notify_recipients", "type",    "send_trap", "attach"};

// Codec of ObjectKind (gateway/policy/named_objects.h).
bool encodeNotification(const ObjectEntry& entry, std::string& setting, const FaultSink& fault);
bool decodeNotification(const std::string& setting, EntryKeys& keys);
std::string doubtNotification(const std::string& setting);

}  // namespace gateway::policy
