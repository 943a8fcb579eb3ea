// Conversions between charsets, on the C library's.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace fakes {

/// Converts \p text. \return 0 or an OVMSGERR code; then \p out is empty.
int convert(const std::string& text, const char* from, const char* to, std::string& out);

/// What `OvMsg_CharsetConverterString` was asked, and what conversions refuse or let through. Each
/// test starts by clearing it.
class Conversions {
 public:
  static Conversions& instance();

  void clear();
  /// From now on conversions between these two fail; an empty name stands for any.
  void refuse(const std::string& from, const std::string& to);
  bool refuses(const char* from, const char* to) const;
  /// "from to room flag level", in order.
  std::vector<std::string>& calls() { return calls_; }

  bool keepsEightBit = false;  ///< conversions to US-ASCII let every byte through

 private:
  std::vector<std::pair<std::string, std::string>> refused_;
  std::vector<std::string> calls_;
};

}  // namespace fakes
