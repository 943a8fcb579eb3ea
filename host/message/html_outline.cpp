#include "host/message/html_outline.h"

#include <algorithm>
#include <array>
#include <optional>

#include "host/message/ascii.h"
#include "host/message/html_scanner.h"

namespace host::message {

namespace {

template <std::size_t N>
bool isOneOf(std::string_view name, const std::array<std::string_view, N>& names) {
  return std::any_of(names.begin(), names.end(),
                     [&](std::string_view entry) { return isNamed(name, entry); });
}

/// Elements that stand in front of the body.
bool isOfHead(std::string_view name) {
  constexpr std::array<std::string_view, 11> kNames{"html",    "head",     "meta",    "title",
                                                    "style",   "script",   "link",    "base",
                                                    "bgsound", "basefont", "noframes"};
  return isOneOf(name, kNames);
}

/// Elements that change what the tags in them mean.
bool isContext(std::string_view name) {
  constexpr std::array<std::string_view, 6> kNames{"svg",    "math",     "template",
                                                   "select", "frameset", "plaintext"};
  return isOneOf(name, kNames);
}

bool isVoid(std::string_view name) {
  constexpr std::array<std::string_view, 8> kNames{"br",   "img",   "meta", "hr",
                                                   "link", "input", "col",  "area"};
  return isOneOf(name, kNames);
}

/// Reads tag after tag.
class Outliner {
 public:
  Outliner(std::string_view document, std::size_t from, OvMsgInsertPlace place)
      : document_(document), scanner_(document, from), place_(place), end_(document.size()) {}

  HtmlOutline run() {
    HtmlToken token;
    while (!isDone_ && scanner_.next(token)) take(token);
    finish();
    return outline_;
  }

 private:
  using Kind = HtmlToken::Kind;

  void take(const HtmlToken& token) {
    countWork(token);
    if (!token.isComplete) {
      end_ = token.isRaw ? startTag_ : token.begin;
    } else if (token.kind == Kind::Text) {
      takeText(token);
    } else if (token.kind == Kind::StartTag) {
      takeStartTag(token);
    } else if (token.kind == Kind::EndTag) {
      takeEndTag(token);
    }
  }

  void takeText(const HtmlToken& token) {
    if (begin_ && !token.isRaw) return;
    const std::string_view text = document_.substr(token.begin, token.end - token.begin);
    if (token.isRaw) {
      // A comment in a script may hold another script with an end tag of its own.
      if (text.find("<!--") != std::string_view::npos && text.find("<script") != text.npos) {
        outline_.isCertain = false;
      }
      return;
    }
    const std::size_t shown = text.find_first_not_of(" \t\r\n\f");
    if (shown != std::string_view::npos) beginBody(token.begin + shown);
  }

  void takeStartTag(const HtmlToken& token) {
    if (!isVoid(token.name)) ++open_;
    startTag_ = token.begin;
    lastEndTag_.reset();
    if (isContext(token.name)) outline_.isCertain = false;
    if (begin_) return;
    if (isTag(token, Kind::StartTag, "body")) {
      beginBody(token.end);
    } else if (isTag(token, Kind::StartTag, "frameset")) {
      framesetTag_ = begin_ = token.end;
    } else if (!isOfHead(token.name)) {
      if (isTag(token, Kind::StartTag, "noscript")) outline_.isCertain = false;
      beginBody(token.begin);
    }
  }

  void takeEndTag(const HtmlToken& token) {
    if (open_ > 0) --open_;
    const bool isBody = isTag(token, Kind::EndTag, "body");
    const bool isHtml = isTag(token, Kind::EndTag, "html");
    if (isBody || isHtml || isTag(token, Kind::EndTag, "br")) beginBody(token.begin);
    if (isTag(token, Kind::EndTag, "frameset")) framesetEnd_ = token.begin;
    if (isBody || (isHtml && !(lastEndTag_ && lastIsBody_))) {
      lastEndTag_ = token.begin;
      lastIsBody_ = isBody;
    } else if (!isHtml) {
      lastEndTag_.reset();
    }
  }

  void countWork(const HtmlToken& token) {
    outline_.treeWork += open_ + 1 + token.attributes * token.attributes;
  }

  /// Content that is shown begins at \p at.
  void beginBody(std::size_t at) {
    if (begin_) return;
    top_ = begin_ = at;
    isDone_ = place_ == OvMsgInsertPlace::Top;
  }

  void finish() {
    HtmlPlace& place = outline_.place;
    if (framesetTag_) {
      place.isFrameset = true;
      place.at = place_ == OvMsgInsertPlace::Top ? *framesetTag_ : framesetEnd_.value_or(end_);
      outline_.isCertain = true;  // no element in it is shown but frames
    } else if (place_ == OvMsgInsertPlace::Top) {
      place.at = top_.value_or(end_);
    } else {
      place.at = std::min(lastEndTag_.value_or(end_), end_);
    }
  }

  std::string_view document_;
  HtmlScanner scanner_;
  OvMsgInsertPlace place_;
  HtmlOutline outline_;
  std::size_t end_;  ///< of what is shown
  std::optional<std::size_t> begin_;
  std::optional<std::size_t> top_;
  std::optional<std::size_t> lastEndTag_;  ///< of the body, else of the document
  bool lastIsBody_ = false;
  std::optional<std::size_t> framesetTag_;
  std::optional<std::size_t> framesetEnd_;
  std::size_t open_ = 0;
  std::size_t startTag_ = 0;  ///< where the last one begins
  bool isDone_ = false;
};

}  // namespace

HtmlOutline outlineOf(std::string_view document, std::size_t from, OvMsgInsertPlace place) {
  return Outliner(document, from, place).run();
}

}  // namespace host::message
