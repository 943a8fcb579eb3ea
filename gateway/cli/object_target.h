// Which named objects the arguments of a command mean.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/policy/named_objects.h"
#include "gateway/policy/policy_records.h"
#include "host/store/object_store.h"

namespace gateway::cli {

/// A kind as it stands in commands and JSON: "quarantine_area". A type that this program does not
/// know is its number.
std::string kindWord(std::uint32_t type);

/// The kind that \p word names: "stamp", "stamps", "quarantine-area", "2". Null after a complaint.
const policy::ObjectKind* requireKind(const std::string& word);

/// Reads a number of 32 bits. \return nothing for any other text
std::optional<std::uint32_t> parseId(std::string_view text);

/// The object that the first arguments of a command name: "ID", or "TYPE NAME". A name is looked up
/// in the store; whether there is an object of a number, its operation tells.
/// \param owner  of a name
/// \param id  receives it
/// \param used  receives how many arguments named it
/// \return the exit status, after a complaint when it is not ExitDone
int findTarget(host::store::ObjectStore& store, const std::vector<std::string>& arguments,
               std::optional<std::uint32_t> owner, std::uint32_t& id, std::size_t& used);

}  // namespace gateway::cli
