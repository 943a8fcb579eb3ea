// The keys that seal reprocessing fields.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/core/file_ops.h"
#include "host/delivery/adapter_error.h"
#include "library/platform/api.h"

namespace host::delivery {

struct SealKey {
  std::string id;              ///< 16 characters from [0-9a-f]
  std::int64_t validFrom = 0;  ///< it seals from then on; what it sealed holds before, too
  std::string secret;          ///< 32 bytes
};

/// Whether \p id has the form of a key's id.
KAVI_API bool isSealKeyId(std::string_view id);

/// Reads the content of a key file: a line "seal-key ID VALID-FROM SECRET" for each key, the
/// secret in hexadecimal; blank lines and lines that begin with "#" do not count.
/// \return false, with \p keys as it was, if any other line stands in it.
KAVI_API bool parseSealKeys(std::string_view text, std::vector<SealKey>& keys);

/// A file of keys that the gateways of a site share. It is read anew each time, so that a key that
/// was added counts at once. To change keys: add one that is valid from a later time to the file of
/// every gateway, and take the old one out when its last seal has expired. Safe from any thread.
class KAVI_API SealKeys {
 public:
  /// \param path  the file; its folder is made with mode 0700 when it is missing
  explicit SealKeys(std::string path, core::FileOps& ops = core::FileOps::system());

  /// The newest key that is valid at \p now. A file that is not there is made, with mode 0600 and
  /// one key; of several that make it at once, one succeeds and all use that. KeyUnavailable when
  /// it cannot be read or made, or holds no valid key: a new one never takes its place.
  AdapterError signingKey(std::int64_t now, SealKey& key) const;

  /// The key \p id. NotFound when there is none, or no file yet; KeyUnavailable when the file
  /// cannot be read.
  AdapterError findKey(std::string_view id, SealKey& key) const;

  /// Adds a new key. \param validFrom  seconds since 1970
  AdapterError addKey(std::int64_t validFrom) const;

  const std::string& path() const { return path_; }

 private:
  AdapterError read(std::vector<SealKey>& keys) const;
  AdapterError create(std::int64_t now) const;

  std::string path_;
  std::string folder_;
  std::string name_;
  core::FileOps& ops_;
};

}  // namespace host::delivery
