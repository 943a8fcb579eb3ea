// What is shown of a message that was put aside.
#pragma once

#include <string>
#include <vector>

#include "host/store/message_index.h"

namespace gateway::cli {

/// A table, and how many there are.
/// \param more  there may be others behind them
std::string filedListText(const std::vector<host::store::IndexEntry>& entries, bool more);
std::string filedListJson(const std::vector<host::store::IndexEntry>& entries);

std::string filedText(const host::store::IndexEntry& entry);
std::string filedJson(const host::store::IndexEntry& entry);

/// One line that tells a message from others: number, time, sender, subject.
std::string filedLine(const host::store::IndexEntry& entry);

}  // namespace gateway::cli
