// What header values mean. The only door to the MIME library for header fields: no object of it
// outlives a call. It ends the process when an allocation of its own fails. Values longer than
// `kMaxInterpretedBytes` are read up to there.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host::message::mime {

inline constexpr std::size_t kMaxInterpretedBytes = std::size_t{256} * 1024;

/// Starts the MIME library once in the process; every call below does it by itself.
void initialise();

/// A field value on one line: folds undone (RFC 5322 section 2.2.3), ends trimmed, NUL as space.
std::string unfolded(std::string_view raw);

/// The part of a value with parameters in front of the first ";", trimmed.
std::string_view properValue(std::string_view unfoldedValue);

/// "type/subtype", lower case, of a Content-Type value; empty when it is malformed.
std::string contentType(std::string_view unfoldedValue);
/// Whether \p text is "type/subtype" and nothing else.
bool isContentType(std::string_view text);
/// Whether \p c belongs to a token (RFC 2045 section 5.1).
bool isTokenChar(char c);
/// Whether \p text is a token (RFC 2045 section 5.1).
bool isToken(std::string_view text);
/// A parameter decoded to UTF-8 (RFC 2231); nothing when it is absent.
std::optional<std::string> contentTypeParameter(std::string_view unfoldedValue, const char* name);
std::optional<std::string> dispositionParameter(std::string_view unfoldedValue, const char* name);

/// \p unfoldedValue with parameter \p name set to \p value (UTF-8), encoded as RFC 2231 asks and
/// folded with \p lineBreak; nothing when the library cannot read the value.
std::optional<std::string> withParameter(std::string_view fieldName, std::string_view unfoldedValue,
                                         const char* name, const char* value,
                                         std::string_view lineBreak);

/// \p value, which may be folded, with parameter \p name set to \p written, quoted or not: where it
/// stands, or at the end. Nothing else of the value changes, but that further ones of that name go.
std::string withWritten(std::string_view value, std::string_view name, std::string_view written);

struct Address {
  std::string displayName;  ///< UTF-8, decoded; empty when there is none
  std::string address;      ///< without brackets
};
/// The mailboxes in a value, those of groups included; at most \p limit of them.
std::vector<Address> addresses(std::string_view unfoldedValue, std::size_t limit);

}  // namespace host::message::mime
