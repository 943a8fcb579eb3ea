// Line breaks as SMTP wants them.
#pragma once

#include <cstddef>
#include <string_view>

#include "library/platform/api.h"

namespace host::delivery {

/// Makes every line break CR LF (RFC 5321 section 2.3.8): a CR or LF that stands alone counts as
/// one. Works on bytes that come in pieces; the same bytes give the same result however divided.
class KAVI_API CrLfEncoder {
 public:
  /// Takes bytes from the front of \p in and writes at most \p room bytes, of at least 2.
  /// \return how many were written. Stops when \p in is empty or less than two bytes are left.
  std::size_t encode(std::string_view& in, char* out, std::size_t room);

 private:
  bool afterCr_ = false;
};

}  // namespace host::delivery
