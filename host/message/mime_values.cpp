#include "host/message/mime_values.h"

#include <gmime/gmime.h>

#include <algorithm>
#include <memory>

#include "host/message/address.h"
#include "host/message/ascii.h"

namespace host::message::mime {

namespace {

struct Unref {
  void operator()(void* object) const { g_object_unref(object); }
};
template <class T>
using Held = std::unique_ptr<T, Unref>;

struct GFree {
  void operator()(void* bytes) const { g_free(bytes); }
};

std::string asCString(std::string_view value) {
  std::string text(value.substr(0, kMaxInterpretedBytes));
  std::replace(text.begin(), text.end(), '\0', ' ');
  return text;
}

/// The library hands out what it could not decode as it found it.
std::string asUtf8(const char* text) {
  if (g_utf8_validate(text, -1, nullptr)) return text;
  std::string result;
  for (const char* p = text; *p != '\0'; ++p) {
    const auto byte = static_cast<unsigned char>(*p);
    if (byte < 0x80) {
      result += *p;
    } else {
      result += static_cast<char>(0xC0 | (byte >> 6));
      result += static_cast<char>(0x80 | (byte & 0x3F));
    }
  }
  return result;
}

/// The library reads a group in a group by recursion. No list of addresses has so many groups that
/// cutting it would lose one.
std::string_view withFewGroups(std::string_view value) {
  constexpr int kMostColons = 200;
  int colons = 0;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (value[i] == ':' && ++colons > kMostColons) return value.substr(0, i);
  }
  return value;
}

/// The comma that ends the address at \p at. The library is given one after the other: over a list
/// of malformed ones its time grows with the square of their number.
std::size_t addressEnd(std::string_view value, std::size_t at) {
  bool quoted = false;
  std::size_t comments = 0;
  bool bracketed = false;
  for (; at < value.size(); ++at) {
    const char c = value[at];
    if (c == '\\') {
      ++at;
    } else if (quoted || c == '"') {
      quoted = quoted != (c == '"');
    } else if (c == '(') {
      ++comments;
    } else if (comments > 0) {
      if (c == ')') --comments;
    } else if (c == '<' || c == '>') {
      bracketed = c == '<';
    } else if (c == ',' && !bracketed) {
      return at;
    }
  }
  return value.size();
}

void appendAddresses(std::string_view text, std::size_t limit, std::vector<Address>& result) {
  constexpr std::size_t kLongestAddress = 8192;
  if (text.size() > kLongestAddress) {
    // What the library could not be given whole: a long name must not cost the address behind it.
    Address mailbox = splitMailbox(text);
    if (isMailAddress(mailbox.address)) {
      result.push_back(std::move(mailbox));
      return;
    }
  }
  const Held<InternetAddressList> list(
      internet_address_list_parse(nullptr, asCString(text.substr(0, kLongestAddress)).c_str()));
  if (list == nullptr) return;
  // Groups hold lists again; what is still to be read, innermost last.
  std::vector<std::pair<InternetAddressList*, int>> open{{list.get(), 0}};
  while (!open.empty() && result.size() < limit) {
    auto& [members, index] = open.back();
    if (index >= internet_address_list_length(members)) {
      open.pop_back();
      continue;
    }
    InternetAddress* entry = internet_address_list_get_address(members, index++);
    if (INTERNET_ADDRESS_IS_GROUP(entry)) {
      if (auto* inner = internet_address_group_get_members(INTERNET_ADDRESS_GROUP(entry))) {
        open.emplace_back(inner, 0);
      }
      continue;
    }
    const char* address = internet_address_mailbox_get_addr(INTERNET_ADDRESS_MAILBOX(entry));
    const char* name = internet_address_get_name(entry);
    result.push_back({name == nullptr ? std::string() : asUtf8(name),
                      address == nullptr ? std::string() : asUtf8(address)});
  }
}

Held<GMimeContentType> readContentType(std::string_view value) {
  initialise();
  return Held<GMimeContentType>(g_mime_content_type_parse(nullptr, asCString(value).c_str()));
}

Held<GMimeContentDisposition> readDisposition(std::string_view value) {
  initialise();
  return Held<GMimeContentDisposition>(
      g_mime_content_disposition_parse(nullptr, asCString(value).c_str()));
}

/// Behind white space and comments (RFC 5322 section 3.2.2), which may be nested.
std::size_t skipComments(std::string_view text, std::size_t at) {
  std::size_t depth = 0;
  for (; at < text.size(); ++at) {
    if (text[at] == '(') {
      ++depth;
    } else if (depth == 0) {
      if (!isSpace(text[at])) break;
    } else if (text[at] == ')') {
      --depth;
    } else if (text[at] == '\\') {
      ++at;
    }
  }
  return std::min(at, text.size());
}

/// The library takes a comment behind a value that has no quotes for a part of it.
std::string withoutComment(std::string text, std::string_view value) {
  const std::size_t comment = text.find(" (");
  if (comment == std::string::npos || !text.ends_with(')')) return text;
  if (value.find('"' + text + '"') != std::string_view::npos) return text;
  return text.substr(0, comment);
}

/// The ";" that ends the parameter, or the proper value, at \p at.
std::size_t parameterEnd(std::string_view value, std::size_t at) {
  bool quoted = false;
  int depth = 0;
  for (; at < value.size(); ++at) {
    const char c = value[at];
    if (c == '\\') {
      ++at;
    } else if (quoted) {
      quoted = c != '"';
    } else if (c == '"' && depth == 0) {
      quoted = true;
    } else if (c == '(') {
      ++depth;
    } else if (c == ')' && depth > 0) {
      --depth;
    } else if (c == ';' && depth == 0) {
      return at;
    }
  }
  return value.size();
}

std::string_view tokenAt(std::string_view text, std::size_t& at) {
  const std::size_t begin = at;
  while (at < text.size() && isTokenChar(text[at])) ++at;
  return text.substr(begin, at - begin);
}

/// What g_mime_..._encode returns starts with the field name or goes without one; its folds are
/// "\n\t" or "\n ".
std::string withLineBreaks(std::string_view folded, std::string_view lineBreak) {
  std::string result;
  for (const char c : folded) {
    if (c == '\n') {
      result += lineBreak;
    } else if (c != '\r') {
      result += c;
    }
  }
  while (!result.empty() && isSpace(result.back())) result.pop_back();
  return result;
}

}  // namespace

void initialise() {
  static const bool done = [] {
    g_mime_init();
    // Their classes are made here, and stay: read by several threads afterwards.
    g_type_class_ref(INTERNET_ADDRESS_TYPE_MAILBOX);
    g_type_class_ref(INTERNET_ADDRESS_TYPE_GROUP);
    return true;
  }();
  static_cast<void>(done);
}

std::string unfolded(std::string_view raw) {
  raw = trimmed(raw);
  std::string result;
  result.reserve(raw.size());
  for (const char c : raw) {
    if (c == '\n') {
      while (!result.empty() && result.back() == '\r') result.pop_back();
    } else {
      result += c == '\0' ? ' ' : c;
    }
  }
  const std::string_view kept = trimmed(result);  // NULs at the ends became spaces
  return kept.size() == result.size() ? result : std::string(kept);
}

std::string_view properValue(std::string_view value) {
  return trimmed(value.substr(0, parameterEnd(value, 0)));
}

// Lenient: whatever follows the subtype, a type that can be read is one.
std::string contentType(std::string_view value) {
  std::size_t at = skipComments(value, 0);
  const std::string_view type = tokenAt(value, at);
  at = skipComments(value, at);
  if (type.empty() || at >= value.size() || value[at] != '/') return {};
  at = skipComments(value, at + 1);
  const std::string_view subtype = tokenAt(value, at);
  if (subtype.empty()) return {};
  return lowered(type) + "/" + lowered(subtype);
}

bool isTokenChar(char c) {
  return c > ' ' && c < 127 &&
         std::string_view("()<>@,;:\\\"/[]?=").find(c) == std::string_view::npos;
}

bool isContentType(std::string_view text) {
  const std::size_t slash = text.find('/');
  return slash != std::string_view::npos && isToken(text.substr(0, slash)) &&
         isToken(text.substr(slash + 1));
}

bool isToken(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), isTokenChar);
}

std::optional<std::string> contentTypeParameter(std::string_view value, const char* name) {
  const auto parsed = readContentType(value);
  if (parsed == nullptr) return std::nullopt;
  const char* text = g_mime_content_type_get_parameter(parsed.get(), name);
  if (text == nullptr) return std::nullopt;
  return withoutComment(asUtf8(text), value);
}

std::optional<std::string> dispositionParameter(std::string_view value, const char* name) {
  const auto parsed = readDisposition(value);
  if (parsed == nullptr) return std::nullopt;
  const char* text = g_mime_content_disposition_get_parameter(parsed.get(), name);
  if (text == nullptr) return std::nullopt;
  return asUtf8(text);
}

std::optional<std::string> withParameter(std::string_view fieldName, std::string_view value,
                                         const char* name, const char* text,
                                         std::string_view lineBreak) {
  // Malformed names make the library ask for gigabytes.
  const std::string utf8 = asCString(value);
  if (!g_utf8_validate(utf8.c_str(), -1, nullptr)) return std::nullopt;
  std::unique_ptr<char, GFree> encoded;
  if (equalsIgnoreCase(fieldName, "content-type")) {
    const auto parsed = readContentType(value);
    if (parsed == nullptr) return std::nullopt;
    g_mime_content_type_set_parameter(parsed.get(), name, text);
    encoded.reset(g_mime_content_type_encode(parsed.get(), nullptr));
  } else {
    const auto parsed = readDisposition(value);
    if (parsed == nullptr) return std::nullopt;
    g_mime_content_disposition_set_parameter(parsed.get(), name, text);
    encoded.reset(g_mime_content_disposition_encode(parsed.get(), nullptr));
  }
  if (encoded == nullptr) return std::nullopt;
  return withLineBreaks(trimmed(encoded.get()), lineBreak);
}

std::string withWritten(std::string_view value, std::string_view name, std::string_view written) {
  std::size_t at = parameterEnd(value, 0);
  std::string result(value.substr(0, at));
  bool isSet = false;
  while (at < value.size()) {
    const std::size_t end = parameterEnd(value, at + 1);
    const std::string_view parameter = value.substr(at, end - at);
    const std::size_t equals = parameter.find('=');
    const std::string_view present = trimmed(parameter.substr(1, std::min(equals, end) - 1));
    at = end;
    if (!equalsIgnoreCase(present, name)) {
      result += parameter;
    } else if (!isSet) {
      // With what stands between the ";" and the name: a fold, perhaps.
      const auto nameBegin = static_cast<std::size_t>(present.data() - parameter.data());
      result.append(parameter.substr(0, nameBegin)).append(name).append("=").append(written);
      isSet = true;
    }
  }
  if (isSet) return result;
  while (!result.empty() && (isSpace(result.back()) || result.back() == ';')) result.pop_back();
  return result.append("; ").append(name).append("=").append(written);
}

std::vector<Address> addresses(std::string_view value, std::size_t limit) {
  initialise();
  std::vector<Address> result;
  value = value.substr(0, kMaxInterpretedBytes);
  for (std::size_t at = 0; at < value.size() && result.size() < limit;) {
    const std::size_t end = addressEnd(value, at);
    appendAddresses(withFewGroups(value.substr(at, end - at)), limit, result);
    at = end + 1;
  }
  return result;
}

}  // namespace host::message::mime
