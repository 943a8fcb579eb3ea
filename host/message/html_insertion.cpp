#include "host/message/html_insertion.h"

#include <algorithm>
#include <array>

#include "host/message/ascii.h"
#include "host/message/charset.h"
#include "host/message/html_outline.h"
#include "host/message/html_scanner.h"
#include "host/message/html_tree.h"

namespace host::message {

namespace {

/// Where the source of a block is broken, so that short lines stay short lines.
constexpr std::size_t kLongLine = 700;
/// Far more than any document that somebody wrote takes, and a fraction of a second.
constexpr std::size_t kMaxTreeWork = 20'000'000;
constexpr std::size_t kMaxTreeBytes = std::size_t{4} << 20;
/// No document declares its charset behind so many bytes; readers look at the first 1,024.
constexpr std::size_t kDeclarationReach = std::size_t{64} * 1024;

void appendEscaped(char c, std::string& out) {
  switch (c) {
    case '&':
      out += "&amp;";
      break;
    case '<':
      out += "&lt;";
      break;
    case '>':
      out += "&gt;";
      break;
    default:
      out += c;
  }
}

std::string blockOf(std::string_view lines) {
  std::string block("<div>");
  std::size_t lineBegin = 0;
  for (const char c : lines) {
    if (c != '\n') {
      appendEscaped(c, block);
      continue;
    }
    block += "<br>";
    if (block.size() - lineBegin > kLongLine) {
      block += '\n';
      lineBegin = block.size();
    }
  }
  return block += "</div>";
}

HtmlPlace placeIn(std::string_view document, std::size_t from, OvMsgInsertPlace place) {
  const HtmlOutline outline = outlineOf(document, from, place);
  if (outline.isCertain || document.size() > kMaxTreeBytes || outline.treeWork > kMaxTreeWork) {
    return outline.place;
  }
  const auto found = treePlace(document.substr(from), place);
  return found ? HtmlPlace{from + *found, false} : outline.place;
}

/// A charset name somewhere in a text.
struct Declared {
  std::size_t at;
  std::size_t length;
};

/// The value of `charset=` in \p text, or of `encoding=`.
bool findValue(std::string_view text, std::string_view name, Declared& found) {
  const std::string low = lowered(text);
  std::size_t at = low.find(name);
  if (at == std::string::npos) return false;
  at += name.size();
  const auto skip = [&](std::string_view set) {
    while (at < text.size() && set.find(text[at]) != std::string_view::npos) ++at;
  };
  skip(" \t\r\n");
  if (at >= text.size() || text[at] != '=') return false;
  ++at;
  skip(" \t\r\n\"'");
  const std::size_t end = std::min(text.find_first_of(" \t\r\n\"';?>", at), text.size());
  found = {at, end - at};
  return end > at;
}

/// What a piece of the document says about its charset.
bool findDeclaration(std::string_view document, const HtmlToken& token, Declared& found) {
  std::string_view text;
  if (isTag(token, HtmlToken::Kind::StartTag, "meta")) {
    text = attributeOf(document, token, "charset");
    if (!text.empty()) {
      const std::string_view name = trimmed(text);
      found = {static_cast<std::size_t>(name.data() - document.data()), name.size()};
      return !name.empty();
    }
    if (!equalsIgnoreCase(trimmed(attributeOf(document, token, "http-equiv")), "content-type")) {
      return false;
    }
    text = attributeOf(document, token, "content");
    if (text.empty() || !findValue(text, "charset", found)) return false;
  } else if (token.kind == HtmlToken::Kind::Other) {
    text = document.substr(token.begin, token.end - token.begin);
    if (!startsWithIgnoreCase(text, "<?xml") || !findValue(text, "encoding", found)) return false;
  } else {
    return false;
  }
  found.at += static_cast<std::size_t>(text.data() - document.data());
  return true;
}

template <class Function>
void forEachDeclaration(std::string_view document, std::size_t from, Function function) {
  HtmlScanner scanner(document.substr(0, from + kDeclarationReach), from);
  HtmlToken token;
  while (scanner.next(token)) {
    Declared found{};
    if (token.isComplete && findDeclaration(document, token, found) && !function(found)) return;
  }
}

}  // namespace

TextEdit htmlInsertion(std::string_view document, std::size_t from, std::string_view lines,
                       OvMsgInsertPlace place) {
  const HtmlPlace at = placeIn(document, from, place);
  TextEdit edit{at.at, 0, blockOf(lines)};
  if (at.isFrameset) edit.text = "<noframes>" + edit.text + "</noframes>";
  // On lines of its own: what stands beside it may fill a line already.
  if (at.at > from && document[at.at - 1] != '\n') edit.text.insert(edit.text.begin(), '\n');
  const std::string_view behind = document.substr(at.at, 2);
  if (!behind.starts_with('\n') && behind != "\r\n" &&
      (!behind.empty() || document.ends_with('\n'))) {
    edit.text += '\n';
  }
  return edit;
}

std::string withReferences(std::string_view html) {
  std::string result;
  const std::u16string units = utf16Of(html);
  for (std::size_t i = 0; i < units.size(); ++i) {
    std::uint32_t c = units[i];
    if (c < 0x80) {
      result += static_cast<char>(c);
      continue;
    }
    if (c >= 0xD800 && c < 0xDC00 && i + 1 < units.size()) {
      c = 0x10000 + ((c - 0xD800) << 10) + (units[++i] - 0xDC00u);
    }
    result.append("&#").append(std::to_string(c)).append(";");
  }
  return result;
}

std::string_view charsetInHtml(std::string_view document, std::size_t from) {
  std::string_view charset;
  forEachDeclaration(document, from, [&](const Declared& found) {
    charset = document.substr(found.at, found.length);
    return false;
  });
  return charset;
}

std::vector<TextEdit> charsetCorrections(std::string_view document, std::size_t from,
                                         std::string_view charset) {
  std::vector<TextEdit> edits;
  forEachDeclaration(document, from, [&](const Declared& found) {
    if (!equalsIgnoreCase(document.substr(found.at, found.length), charset)) {
      edits.push_back({found.at, found.length, std::string(charset)});
    }
    return true;
  });
  return edits;
}

}  // namespace host::message
