// The texts of the store in the words of one database.
#pragma once

#include <string>
#include <string_view>

namespace host::store {

/// How one database says what the texts leave open.
struct Dialect {
  std::string_view bytes;   ///< for {bytes}: the type of raw bytes
  std::string_view row;     ///< for {row}: the type of a row number that is never given twice
  std::string_view digest;  ///< for {digest}: a function that makes long bytes short, or nothing
  bool isServer = false;    ///< whether texts that begin with {server} are for it
};

/// \p text in the words of \p dialect; empty when the text is not for that database.
std::string inWordsOf(const Dialect& dialect, std::string_view text);

}  // namespace host::store
