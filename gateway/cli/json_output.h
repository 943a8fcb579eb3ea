// What commands print for programs, and for people.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace gateway::cli {

/// Puts \p bytes under \p key. Bytes that are no UTF-8 cannot stand in JSON as they are, and get a
/// second key, "KEY_encoded", from which they can be had: every byte but letters, digits and
/// "-._~/" as "%XX" (RFC 3986 section 2.1).
void addBytes(const char* key, const std::string& bytes, nlohmann::ordered_json& json);

/// Prints \p json over several lines; what is no UTF-8 becomes U+FFFD.
void printJson(const nlohmann::ordered_json& json);

/// Adds to \p json, under "error", what the command has complained of so far, if it has.
void addComplaints(nlohmann::ordered_json& json);

/// Prints, on one line, an object with what the command has complained of: for a command that
/// failed, unless it has printed a report of its own.
void printFailure();

/// Prints \p text, which may hold any byte. What cannot be written is told in the end, by
/// finishOutput.
void printText(const std::string& text);

/// The same, and a line break.
void printLine(const std::string& text);

}  // namespace gateway::cli
