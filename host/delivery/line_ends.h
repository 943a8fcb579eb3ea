// Line breaks as SMTP wants them.
#pragma once

#include <cstddef>
#include <string_view>

#include "library/platform/api.h"

namespace host::delivery {

/// Makes every line break CR LF (RFC 5321 section 2.3.8): an LF, with whatever CRs stand right
/// before it, and each CR that stands alone. Works on bytes that come in pieces; the same bytes
/// give the same result however divided.
class KAVI_API CrLfEncoder {
 public:
  /// Takes bytes from the front of \p in and writes at most \p room bytes, of at least 2; to be
  /// called until \p in is empty. \return how many were written.
  std::size_t encode(std::string_view& in, char* out, std::size_t room);

  /// Writes, behind the last byte, what was held back; to be called until `isFinished`.
  std::size_t finish(char* out, std::size_t room);
  bool isFinished() const { return heldCrs_ == 0; }

 private:
  std::size_t heldCrs_ = 0;  ///< one line break or as many: the next byte tells
};

}  // namespace host::delivery
