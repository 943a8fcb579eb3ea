// The reprocessing fields in the header of a message.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/delivery/digest.h"
#include "library/platform/api.h"

namespace host::delivery {

inline constexpr char kReprocessRules[] = "X-kavi-reprocess-rules";
inline constexpr char kReprocessType[] = "X-kavi-reprocess-type";
inline constexpr char kReprocessSeal[] = "X-kavi-reprocess-seal";

/// A message divided as the mail system behind SMTP will see it: a CR or LF that stands alone ends
/// a line, and a line that is no field ends the header.
class KAVI_API DividedMail {
 public:
  /// \param mail  must outlive this object. Takes time linear in the header.
  explicit DividedMail(std::string_view mail);

  /// Every value of the field \p name, unfolded and trimmed, in order.
  std::vector<std::string> values(std::string_view name) const;
  /// The header with CR LF line breaks, without the fields named in \p names.
  std::string headerWithout(const std::vector<std::string_view>& names) const;
  /// An mbox "From " line in front of the header; empty when there is none.
  std::string_view lead() const { return mail_.substr(0, leadBytes_); }
  /// Everything behind the header, the blank line included.
  std::string_view rest() const { return mail_.substr(restOffset_); }
  /// Everything behind the blank line.
  std::string_view body() const { return mail_.substr(bodyOffset_); }

 private:
  std::string_view mail_;
  std::size_t leadBytes_ = 0;
  std::size_t restOffset_ = 0;
  std::size_t bodyOffset_ = 0;
  std::string header_;  ///< with CR LF line breaks
};

/// The digest of a body that survives what mail systems do to bodies: line breaks count as one
/// kind, and blank lines at the end do not count.
KAVI_API Sha256Sum bodyDigest(std::string_view body);

}  // namespace host::delivery
