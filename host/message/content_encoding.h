// Fitting a content into the bytes of a message.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "host/message/tree_editor.h"

namespace host::message {

/// What decides how bytes may be transferred (RFC 2045 section 2.7 to 2.9). Lines end in LF; their
/// break is not counted.
struct LineFacts {
  bool isAscii = true;
  bool hasNul = false;
  bool hasBareCr = false;  ///< one behind which neither LF nor CR stood; not a last one
  std::size_t longestLine = 0;

  /// The next piece of the bytes.
  void add(std::string_view bytes);
  bool fitsLines() const { return !hasNul && longestLine <= 998; }

 private:
  std::size_t open_ = 0;  ///< bytes of the line that is not complete yet
  bool endedInCr_ = false;
};

/// \p content as it is transferred inside \p place: in the encoding asked for, or in base64 where
/// a line of it would be a delimiter of a multipart around.
/// \return 0 or an OVMSGERR code.
int encodeContent(const Entity& place, std::string_view lineBreak, const NewContent& content,
                  std::string& body, TransferEncoding& encoding);

}  // namespace host::message
