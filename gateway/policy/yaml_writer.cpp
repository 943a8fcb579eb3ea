#include "gateway/policy/yaml_writer.h"

#include <unicode/utf8.h>
#include <yaml-cpp/binary.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string_view>

namespace gateway::policy {
namespace {

constexpr std::size_t kIndent = 2;

bool isLetterOrDigit(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; }

/// The character at \p at, which is moved behind it. \p text is UTF-8.
UChar32 nextCharacter(std::string_view text, std::size_t& at) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data() + at);
  const auto rest = static_cast<std::int32_t>(std::min<std::size_t>(text.size() - at, 4));
  std::int32_t length = 0;
  UChar32 c = 0;
  U8_NEXT(bytes, length, rest, c);
  at += static_cast<std::size_t>(length);
  return c;
}

/// What readers of YAML take for something else, refuse or lose: control characters, line breaks
/// of other standards, marks of the byte order and what is no character at all.
bool needsEscape(UChar32 c) {
  return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029 || c == 0xFEFF ||
         (c & 0xFFFE) == 0xFFFE || (c >= 0xFDD0 && c <= 0xFDEF);
}

/// Words that stand for no value at all.
bool isNullWord(std::string_view text) {
  return text == "null" || text == "Null" || text == "NULL" || text == "~";
}

/// Whether \p text can stand without quotes, in front of which nothing but a key or a dash stands.
bool isPlain(std::string_view text) {
  constexpr std::string_view kHarmless = "_./@+=,;()<> -";
  if (text.empty() || isNullWord(text) || text.back() == ' ') return false;
  if (!isLetterOrDigit(text.front()) && text.front() != '/' && text.front() != '_') return false;
  return std::all_of(text.begin(), text.end(), [&](char c) {
    return isLetterOrDigit(c) || kHarmless.find(c) != std::string_view::npos;
  });
}

/// Whether \p text has several lines that a block leaves as they are.
bool isBlock(std::string_view text) {
  const std::size_t end = text.find('\n');
  if (end == std::string_view::npos || end == 0 || text.front() == ' ') return false;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t start = at;
    const UChar32 c = nextCharacter(text, at);
    if (c != '\n' && needsEscape(c)) return false;
    // Blanks at the end of a line are there for nobody to see.
    if (c == '\n' && start > 0 && text[start - 1] == ' ') return false;
  }
  return text.back() != ' ';
}

/// "\x03", "\u2028", "\U0001FFFE".
std::string escaped(unsigned int c) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  const int digits = c < 0x100 ? 2 : c < 0x10000 ? 4 : 8;
  std::string out = digits == 2 ? "\\x" : digits == 4 ? "\\u" : "\\U";
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) out += kDigits[(c >> shift) & 15U];
  return out;
}

std::string quoted(std::string_view text) {
  std::string out = "\"";
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t start = at;
    const UChar32 c = nextCharacter(text, at);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c == '\n' || c == '\t' || c == '\r') {
      out += c == '\n' ? "\\n" : c == '\t' ? "\\t" : "\\r";
    } else if (needsEscape(c)) {
      out += escaped(static_cast<unsigned int>(c));
    } else {
      out += text.substr(start, at - start);
    }
  }
  return out + '"';
}

class Writer {
 public:
  /// Writes the members or items of \p node, each on a line of its own that is \p indent deep.
  /// \param onLine  the first one stands behind what is written already
  void writeAll(const Node& node, std::size_t indent, bool onLine) {
    const bool isMap = node.kind == Node::Kind::Map;
    const std::size_t count = isMap ? node.members.size() : node.items.size();
    for (std::size_t i = 0; i < count; ++i) {
      if (i != 0 || !onLine) out_.append(indent, ' ');
      if (isMap) {
        out_ += scalar(node.members[i].key) + ":";
        writeValue(*node.members[i].value, indent, false);
      } else {
        out_ += "-";
        writeValue(*node.items[i], indent, true);
      }
    }
  }

  std::string take() { return std::move(out_); }

 private:
  static std::string scalar(std::string_view text) {
    return isPlain(text) ? std::string(text) : quoted(text);
  }

  /// Writes what stands behind a key or, \p inList, behind a dash.
  void writeValue(const Node& node, std::size_t indent, bool inList) {
    switch (node.kind) {
      case Node::Kind::Null:
        out_ += " null\n";
        return;
      case Node::Kind::Scalar:
        writeText(node.text, indent + kIndent);
        return;
      case Node::Kind::Binary:
        out_ += " !!binary \"" +
                YAML::EncodeBase64(reinterpret_cast<const unsigned char*>(node.text.data()),
                                   node.text.size()) +
                "\"\n";
        return;
      case Node::Kind::List:
      case Node::Kind::Map:
        writeCollection(node, indent + kIndent, inList);
        return;
    }
  }

  void writeCollection(const Node& node, std::size_t indent, bool inList) {
    const bool isMap = node.kind == Node::Kind::Map;
    if (isMap ? node.members.empty() : node.items.empty()) {
      out_ += isMap ? " {}\n" : " []\n";
      return;
    }
    out_ += inList ? " " : "\n";
    writeAll(node, indent, inList);
  }

  void writeText(const std::string& text, std::size_t indent) {
    if (!isBlock(text)) {
      out_ += " " + scalar(text) + "\n";
      return;
    }
    const bool ends = text.back() == '\n';
    const bool endsTwice = ends && text[text.size() - 2] == '\n';
    out_ += endsTwice ? " |+\n" : ends ? " |\n" : " |-\n";
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = std::min(text.find('\n', at), text.size());
      if (end != at) out_.append(indent, ' ');
      out_.append(text, at, end - at);
      out_ += '\n';
      at = end + 1;
    }
  }

  std::string out_;
};

}  // namespace

std::string writeYaml(const Node& node) {
  Writer writer;
  writer.writeAll(node, 0, false);
  return writer.take();
}

}  // namespace gateway::policy
