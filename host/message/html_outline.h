// Where the body of an HTML document begins and ends.
#pragma once

#include <cstddef>
#include <string_view>

#include "library/platform/ov_msg_mail_message.h"

namespace host::message {

/// A place in a document that is shown.
struct HtmlPlace {
  std::size_t at = 0;
  bool isFrameset = false;  ///< in a document of frames: text there needs <noframes> around it
};

/// What the tags of a document say about its body.
struct HtmlOutline {
  HtmlPlace place;
  /// False where elements decide what a tag means (foreign content, templates, lists of options):
  /// `treePlace` knows better.
  bool isCertain = true;
  /// How many steps building the elements takes, at most: a tag is looked up among the open
  /// elements, an attribute among those of its tag.
  std::size_t treeWork = 0;
};

/// The top of the body is behind its start tag, or before the first content where that tag is
/// missing. The end is before the end tag of the body, else of the document, unless elements follow
/// it; then, and without either, at the end of the document, but before a comment, tag or script
/// that is not closed.
/// \param from  behind a byte order mark
HtmlOutline outlineOf(std::string_view document, std::size_t from, OvMsgInsertPlace place);

}  // namespace host::message
