// A settings text of "[section]" and "key = value" lines.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "library/platform/api.h"

namespace host::core {

/// Where a value stands in an INI text.
struct IniName {
  std::string section;   ///< lower-cased
  std::string key;       ///< likewise
  std::size_t line = 0;  ///< counted from 1; 0 for one that `set` gave
};

/// The values of an INI text. Names of sections and keys are compared without regard to ASCII
/// case; keys before the first section belong to the section "". Comments are lines that begin
/// with ";" or "#"; white space around names and values does not count; quotation marks are part
/// of a value. Copyable; reading is safe from several threads.
class KAVI_API IniDocument {
 public:
  /// The largest text that is read, in bytes.
  static constexpr std::size_t kMaxBytes = 16u << 20;

  /// Replaces the document by \p text.
  /// \param origin  what to call the text in errors, usually a file name
  /// \param error   receives one line for each fault, at most ten: place, fault, remedy
  /// \return false if anything in it is not INI; the document is then as it was. Throws
  ///   std::bad_alloc only.
  bool parse(std::string_view text, const std::string& origin, std::string& error);

  /// The same from a file.
  bool load(const std::string& path, std::string& error);

  /// The value of \p key in \p section; null when there is none.
  const std::string* find(std::string_view section, std::string_view key) const;

  /// Every value's name, by section and key.
  std::vector<IniName> names() const;

  /// Sets a value, replacing an earlier one.
  void set(std::string_view section, std::string_view key, std::string value);

 private:
  struct Value {
    std::string text;
    std::size_t line = 0;  ///< counted from 1; 0 for a value that `set` gave
  };
  using Name = std::pair<std::string, std::string>;  ///< section and key, lower-cased
  class Parser;

  std::map<Name, Value> values_;
};

}  // namespace host::core
