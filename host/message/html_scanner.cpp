#include "host/message/html_scanner.h"

#include <algorithm>
#include <array>

namespace host::message {

namespace {

bool isHtmlSpace(char c) { return isSpace(c) || c == '\f'; }

bool isLetter(char c) { return lowered(c) >= 'a' && lowered(c) <= 'z'; }

/// Elements whose content is text up to their own end tag.
constexpr std::array<std::string_view, 9> kRawElements{
    "style", "script", "title", "textarea", "xmp", "iframe", "noembed", "noframes", "plaintext"};

std::string_view rawElementOf(std::string_view name) {
  for (const std::string_view raw : kRawElements) {
    if (isNamed(name, raw)) return raw;
  }
  return {};
}

/// An attribute, as offsets.
struct Attribute {
  std::size_t nameBegin = 0;
  std::size_t nameEnd = 0;
  std::size_t valueBegin = 0;
  std::size_t valueEnd = 0;
};

/// Reads the attribute at or behind \p at of a tag.
/// \return false at the end of the tag, with \p at at its ">" or at the end of the document.
bool readAttribute(std::string_view text, std::size_t& at, Attribute& found) {
  const auto skip = [&] {
    while (at < text.size() && isHtmlSpace(text[at])) ++at;
  };
  while (at < text.size() && (isHtmlSpace(text[at]) || text[at] == '/')) ++at;
  if (at >= text.size() || text[at] == '>') return false;
  found = {at, at, at, at};
  ++at;  // a "=" here begins a name
  while (at < text.size() && !isHtmlSpace(text[at]) && text[at] != '/' && text[at] != '>' &&
         text[at] != '=') {
    ++at;
  }
  found.nameEnd = found.valueBegin = found.valueEnd = at;
  skip();
  if (at >= text.size() || text[at] != '=') return true;
  ++at;
  skip();
  if (at >= text.size()) return true;
  if (text[at] == '"' || text[at] == '\'') {
    const std::size_t close = text.find(text[at], at + 1);
    found.valueBegin = at + 1;
    found.valueEnd = std::min(close, text.size());
    at = close == std::string_view::npos ? text.size() : close + 1;
    return true;
  }
  found.valueBegin = at;
  while (at < text.size() && !isHtmlSpace(text[at]) && text[at] != '>') ++at;
  found.valueEnd = at;
  return true;
}

}  // namespace

std::string_view attributeOf(std::string_view document, const HtmlToken& token,
                             std::string_view name) {
  const std::string_view text = document.substr(0, token.end);
  auto at = static_cast<std::size_t>(token.name.data() - document.data()) + token.name.size();
  Attribute attribute;
  while (readAttribute(text, at, attribute)) {
    if (equalsIgnoreCase(text.substr(attribute.nameBegin, attribute.nameEnd - attribute.nameBegin),
                         name)) {
      return text.substr(attribute.valueBegin, attribute.valueEnd - attribute.valueBegin);
    }
  }
  return {};
}

bool HtmlScanner::next(HtmlToken& token) {
  if (at_ >= document_.size()) return false;
  token = HtmlToken{};
  token.begin = at_;
  if (!rawElement_.empty()) {
    readRawText(token);
    if (token.end > token.begin) return true;
    token.isRaw = false;
  }
  const bool opens = document_[at_] == '<' && at_ + 1 < document_.size();
  const char second = opens ? document_[at_ + 1] : '\0';
  if (isLetter(second)) {
    token.kind = HtmlToken::Kind::StartTag;
    readTag(token, at_ + 1);
    rawElement_ = token.isComplete ? rawElementOf(token.name) : std::string_view();
    isSelfClosing_ = document_.substr(token.begin, token.end - token.begin).ends_with("/>");
  } else if (second == '/' && at_ + 2 < document_.size() && isLetter(document_[at_ + 2])) {
    token.kind = HtmlToken::Kind::EndTag;
    readTag(token, at_ + 2);
  } else if (second == '!' || second == '?' || second == '/') {
    readMarkup(token);
  } else {
    readText(token);
  }
  at_ = token.end;
  return true;
}

void HtmlScanner::readTag(HtmlToken& token, std::size_t nameBegin) {
  std::size_t at = nameBegin;
  while (at < document_.size() && !isHtmlSpace(document_[at]) && document_[at] != '/' &&
         document_[at] != '>') {
    ++at;
  }
  token.name = document_.substr(nameBegin, at - nameBegin);
  Attribute ignored;
  while (readAttribute(document_, at, ignored)) ++token.attributes;
  token.isComplete = at < document_.size();
  token.end = std::min(at + 1, document_.size());
}

void HtmlScanner::readMarkup(HtmlToken& token) {
  token.kind = HtmlToken::Kind::Other;
  if (document_.substr(at_, 4) == "<!--") {
    finishComment(token);
  } else {
    finishAt(token, ">", at_ + 2);
  }
}

void HtmlScanner::finishAt(HtmlToken& token, std::string_view mark, std::size_t from) {
  const std::size_t found = document_.find(mark, from);
  token.isComplete = found != std::string_view::npos;
  token.end = token.isComplete ? found + mark.size() : document_.size();
}

void HtmlScanner::finishComment(HtmlToken& token) {
  std::size_t at = at_ + 4;
  if (document_.substr(at, 1) == ">") {
    token.end = at + 1;
    return;
  }
  if (document_.substr(at, 2) == "->") {
    token.end = at + 2;
    return;
  }
  for (at = document_.find("--", at); at != std::string_view::npos;
       at = document_.find("--", at + 1)) {
    const std::string_view behind = document_.substr(at + 2, 2);
    if (behind.starts_with('>') || behind == "!>") {
      token.end = at + (behind.starts_with('>') ? 3 : 4);
      return;
    }
  }
  token.isComplete = false;
  token.end = document_.size();
}

void HtmlScanner::readRawText(HtmlToken& token) {
  const std::string_view element = rawElement_;
  rawElement_ = {};
  token.isRaw = true;
  std::size_t at = at_;
  while (element != "plaintext" && (at = document_.find("</", at)) != std::string_view::npos) {
    const std::string_view name = document_.substr(at + 2, element.size());
    const std::size_t behind = at + 2 + element.size();
    if (equalsIgnoreCase(name, element) && behind < document_.size() &&
        (isHtmlSpace(document_[behind]) || document_[behind] == '/' || document_[behind] == '>')) {
      token.end = at_ = at;
      return;
    }
    at += 2;
  }
  // What is not closed hides everything behind it, but for plain text; unless the writer, who had
  // XML in mind, did close it, and then shows what is behind it to some readers only.
  if (isSelfClosing_) {
    token.end = token.begin;
    return;
  }
  token.isComplete = element == "plaintext";
  token.end = at_ = document_.size();
}

void HtmlScanner::readText(HtmlToken& token) {
  token.end = std::min(document_.find('<', at_ + 1), document_.size());
}

}  // namespace host::message
