// A text on its way into another one.
#pragma once

#include <cstddef>
#include <string>

namespace host::message {

/// Replaces \p length bytes at \p at by \p text.
struct TextEdit {
  std::size_t at = 0;
  std::size_t length = 0;
  std::string text = {};  ///< UTF-8, its line breaks LF
};

}  // namespace host::message
