#include "host/core/guard.h"
#include "host/core/text_escape.h"
#include "library/platform/trap.h"

namespace {

constexpr std::size_t kMaxDumpedText = 200;

}  // namespace

KaviTrapInfo::KaviTrapInfo(const std::string& server, SNMPTrapVersion version,
                           const std::string& oid, const std::string& community,
                           unsigned long specificType)
    : server_(server),
      version_(version),
      oid_(oid),
      community_(community),
      specificType_(specificType) {}

KaviTrapInfo::~KaviTrapInfo() = default;

void KaviTrapInfo::setTrapVarValue(const std::string& value) { value_ = value; }

// Without the community: whoever knows it may talk to the server as we do.
std::string KaviTrapInfo::getDumpStr() const {
  return host::core::guarded(std::string(), [this] {
    std::string line = version_ == SNMPTrapVersion::V2c ? "SNMPv2c" : "SNMPv1";
    line += " to '" + host::core::printable(server_) + "', enterprise " +
            host::core::printable(oid_) + ", type " + std::to_string(specificType_) + ", text '" +
            host::core::printable(value_.substr(0, kMaxDumpedText));
    line += value_.size() > kMaxDumpedText ? "'..." : "'";
    return line;
  });
}
