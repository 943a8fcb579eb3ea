// The tags of an HTML document.
#pragma once

#include <cstddef>
#include <string_view>

#include "host/message/ascii.h"

namespace host::message {

/// A piece of a document.
struct HtmlToken {
  enum class Kind : int {
    Text,
    StartTag,
    EndTag,
    Other,  ///< a comment, a document type, a processing instruction
  };
  Kind kind = Kind::Text;
  std::size_t begin = 0;
  std::size_t end = 0;
  std::string_view name = {};  ///< of a tag, as written
  std::size_t attributes = 0;  ///< of a tag
  bool isRaw = false;          ///< a text in which nothing is markup
  bool isComplete = true;      ///< false: the document ends inside it
};

/// Takes a document apart as HTML readers do (the tokenization of the HTML standard), but for what
/// depends on the elements around. Time is linear in the document.
class HtmlScanner {
 public:
  explicit HtmlScanner(std::string_view document, std::size_t from = 0)
      : document_(document), at_(from) {}

  /// \return false at the end of the document.
  bool next(HtmlToken& token);

 private:
  void readTag(HtmlToken& token, std::size_t nameBegin);
  void readMarkup(HtmlToken& token);
  void readRawText(HtmlToken& token);
  void readText(HtmlToken& token);
  void finishAt(HtmlToken& token, std::string_view mark, std::size_t from);
  void finishComment(HtmlToken& token);

  std::string_view document_;
  std::size_t at_;
  std::string_view rawElement_ = {};  ///< whose text is no markup; its start tag came last
  bool isSelfClosing_ = false;        ///< that start tag ends in "/>"
};

/// Whether \p name is \p lowerCase, case ignored.
inline bool isNamed(std::string_view name, std::string_view lowerCase) {
  return name.size() == lowerCase.size() && lowered(name.front()) == lowerCase.front() &&
         equalsIgnoreCase(name, lowerCase);
}

/// Whether \p token is a tag named \p name (lower case).
inline bool isTag(const HtmlToken& token, HtmlToken::Kind kind, std::string_view name) {
  return token.kind == kind && isNamed(token.name, name);
}

/// The value of an attribute of a start tag, as written and without its quotes; null data when the
/// tag has none. The view lies in \p document.
std::string_view attributeOf(std::string_view document, const HtmlToken& token,
                             std::string_view name);

}  // namespace host::message
