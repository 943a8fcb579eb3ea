// The header fields that let a message skip, on its way back through scanning, the rules that
// have fired already.
#pragma once

#include <string>

#include "library/platform/scan_token.h"
#include "library/platform/token_map.h"

class OvMsgEntity;

namespace library {

/// Adds the rule id of the token map to the rules field of \p root and names the calling action in
/// the type field. What cannot be written is logged, and the caller goes on.
/// \param hadHeader  becomes true when there was a rules field with a value; else it is left alone
/// \param oldValue   receives that value
/// \param type       the action's type word: "quarantine", "notification", "readdress"
/// \return false when \p root is null. If the platform throws, the field is restored first.
bool _add_rule_skipping_header(const Kavi::TokenMap<Kavi::ScanToken>& tokens, OvMsgEntity* root,
                               bool& hadHeader, std::string& oldValue, const char* type);

/// Brings the rules field back to what it was. The type field stays: it tells which action handed
/// the message over last.
void _reset_rule_skipping_header(OvMsgEntity* root, bool hadHeader, const std::string& oldValue);

/// The pair above around one hand-over: restores on every way out of the scope.
class RuleSkippingHeader {
 public:
  /// Marks the message. One that has no root entity is logged and left as it is.
  RuleSkippingHeader(const Kavi::TokenMap<Kavi::ScanToken>& tokens, OvMsgEntity* root,
                     const char* type);
  /// Restores unless that was done; a platform that throws here is not heard.
  ~RuleSkippingHeader();
  RuleSkippingHeader(const RuleSkippingHeader&) = delete;
  RuleSkippingHeader& operator=(const RuleSkippingHeader&) = delete;

  void restore();

 private:
  OvMsgEntity* root_;
  bool hadHeader_ = false;
  std::string oldValue_;
  bool restored_ = false;
};

}  // namespace library
