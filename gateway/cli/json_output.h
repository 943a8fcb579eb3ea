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

/// Prints the first part of an object: what \p json holds. endJson prints the rest of it. Before a
/// change is made this shows whether there is anybody to report it to.
/// \return false when it could not be written; the reason is in errno
bool beginJson(const nlohmann::ordered_json& json);

/// Prints the rest of the object that was begun; without one, an object.
void endJson(const nlohmann::ordered_json& json);

/// Writes out what was printed so far. \return false when that cannot be done; the reason is in
/// errno
bool flushOutput();

/// Adds to \p json, under "error", what the command has complained of so far, if it has.
void addComplaints(nlohmann::ordered_json& json);

/// Prints an object with what the command has complained of: for a command that failed, unless it
/// has printed a report of its own. Where it has only begun one, it is the rest.
void printFailure();

/// Prints \p text, which may hold any byte. What cannot be written is told in the end, by
/// finishOutput.
void printText(const std::string& text);

/// The same, and a line break.
void printLine(const std::string& text);

/// Writes \p text, for the person at the terminal, to standard error. When that fails, nobody is
/// there to be told.
void printAside(const std::string& text);

}  // namespace gateway::cli
