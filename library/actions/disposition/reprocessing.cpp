#include "library/actions/disposition/reprocessing.h"

#include <utility>

#include "library/platform/msgu.h"
#include "library/platform/ov_msg_entity.h"
#include "library/tokens/action_utils.h"

namespace library {

namespace {

constexpr const char* kRulesHeader = "X-kavi-reprocess-rules";
constexpr const char* kTypeHeader = "X-kavi-reprocess-type";

void writeHeaders(OvMsgEntity* root, const std::string& oldValue, const std::string* ruleId,
                  const char* type) {
  if (ruleId == nullptr || ruleId->empty()) {
    ActionUtils::L3("Missing rule id for message reprocessing.");
    return;
  }
  const std::string rules = oldValue.empty() ? *ruleId : oldValue + ' ' + *ruleId;
  if (!msgu::setHeader(root, kRulesHeader, rules.c_str(), nullptr)) {
    ActionUtils::L3("Failed to place rule id into message for reprocessing.");
  }
  msgu::setHeader(root, kTypeHeader, type, nullptr);
}

// Restores while an exception is on its way, which a second one must not replace.
void resetQuietly(OvMsgEntity* root, bool hadHeader, const std::string& oldValue) noexcept {
  try {
    _reset_rule_skipping_header(root, hadHeader, oldValue);
  } catch (...) {  // NOLINT(bugprone-empty-catch): nothing more can be done for the field
  }
}

}  // namespace

bool _add_rule_skipping_header(const Kavi::TokenMap<Kavi::ScanToken>& tokens, OvMsgEntity* root,
                               bool& hadHeader, std::string& oldValue, const char* type) {
  if (root == nullptr) {
    return false;
  }
  std::string present;
  msgu::getHeader(root, kRulesHeader, present);
  if (!present.empty()) {
    hadHeader = true;
  }
  oldValue = std::move(present);
  // From here on the former state is known, so that whatever fails can be undone.
  try {
    writeHeaders(root, oldValue, tokens.find(Kavi::ScanToken::RuleId), type);
  } catch (...) {
    resetQuietly(root, hadHeader, oldValue);
    throw;
  }
  return true;
}

void _reset_rule_skipping_header(OvMsgEntity* root, bool hadHeader, const std::string& oldValue) {
  if (root == nullptr) {
    return;
  }
  if (hadHeader) {
    msgu::setHeader(root, kRulesHeader, oldValue.c_str(), nullptr);
  } else {
    root->removeHeader(kRulesHeader);
  }
}

RuleSkippingHeader::RuleSkippingHeader(const Kavi::TokenMap<Kavi::ScanToken>& tokens,
                                       OvMsgEntity* root, const char* type)
    : root_(root) {
  if (!_add_rule_skipping_header(tokens, root_, hadHeader_, oldValue_, type)) {
    ActionUtils::L3("Cannot place reprocessing information into malformed message.");
  }
}

RuleSkippingHeader::~RuleSkippingHeader() {
  if (!restored_) {
    resetQuietly(root_, hadHeader_, oldValue_);
  }
}

void RuleSkippingHeader::restore() {
  _reset_rule_skipping_header(root_, hadHeader_, oldValue_);
  restored_ = true;  // not when that threw: the destructor then tries once more
}

}  // namespace library
