#include "host/delivery/reprocessing.h"

#include <charconv>
#include <optional>

#include "host/delivery/adapter_guard.h"
#include "host/delivery/reprocess_seal.h"

namespace host::delivery {

namespace {

constexpr const char* kFields[] = {kReprocessRules, kReprocessType, kReprocessSeal};

bool isTypeWord(std::string_view text) {
  if (text.empty() || text.size() > 64) return false;
  for (const char c : text) {
    if ((c < 'a' || c > 'z') && (c < 'A' || c > 'Z') && c != '-' && c != '_') return false;
  }
  return true;
}

// The sole value; nothing when there is none or more than one.
std::optional<std::string> only(std::vector<std::string> values) {
  if (values.size() != 1) return std::nullopt;
  return std::move(values[0]);
}

// Checks one message's fields against its seal.
class SealCheck {
 public:
  SealCheck(const DividedMail& mail, const Envelope& envelope, const SealKeys* keys,
            std::int64_t now)
      : mail_(mail), envelope_(envelope), keys_(keys), now_(now) {}

  // Fills `found`, or its refusal. KeyUnavailable when nothing can be said.
  AdapterError run(Reprocessing& found) const {
    const auto rules = only(mail_.values(kReprocessRules));
    const auto type = only(mail_.values(kReprocessType));
    const auto field = only(mail_.values(kReprocessSeal));
    if (!field) return refuse(found, "not sealed exactly once");
    if (!rules || !type) return refuse(found, "more or less than one field of a kind");
    const std::optional<ReprocessSeal> seal = parseSeal(*field);
    if (!seal) return refuse(found, "the seal cannot be read");
    if (seal->passes > kMaxPasses) return refuse(found, "too many passes");
    if (seal->expiry < now_) return refuse(found, "the seal has expired");
    if (seal->expiry > now_ + kSealSeconds + kMaxClockSkew) {
      return refuse(found, "the seal is from the future");
    }
    if (keys_ == nullptr) return refuse(found, "no keys are set");
    SealKey key;
    const AdapterError error = keys_->findKey(seal->keyId, key);
    if (error == AdapterError::NotFound) return refuse(found, "sealed with an unknown key");
    if (error != AdapterError::None) return AdapterError::KeyUnavailable;
    if (!isSealedBy(key, *seal, {*rules, *type, envelope_, bodyDigest(mail_.body())})) {
      return refuse(found, "the seal is not for this message");
    }
    if (!isTypeWord(*type) || !parseRuleIds(*rules, found.rules)) {
      return refuse(found, "the values make no sense");
    }
    found.honoured = true;
    found.type = *type;
    found.passes = seal->passes;
    return AdapterError::None;
  }

 private:
  // Gateways that share keys may differ so much about the time, in seconds.
  static constexpr std::int64_t kMaxClockSkew = 300;

  static AdapterError refuse(Reprocessing& found, const char* why) {
    found.refusal = why;
    return AdapterError::None;
  }

  const DividedMail& mail_;
  const Envelope& envelope_;
  const SealKeys* keys_;
  std::int64_t now_;
};

// What is left of fields that came from anywhere. A copy of sealed mail may come from an outsider:
// it must not have rules skipped, but to count its passes can only end its way sooner.
void takePassesOnly(Reprocessing& found) {
  Reprocessing left;
  left.refusal = "not from the listener for mail sent back";
  left.astray = found.honoured;
  left.passes = found.passes;
  found = std::move(left);
}

// Takes what stands there without asking for a seal.
void assume(const DividedMail& mail, Reprocessing& found) {
  const auto rules = only(mail.values(kReprocessRules));
  const auto type = only(mail.values(kReprocessType));
  if (!rules || !parseRuleIds(*rules, found.rules)) {
    found.refusal = "no rules, or more than one field of them";
    return;
  }
  found.honoured = true;
  if (type && isTypeWord(*type)) found.type = *type;
}

bool hasAny(OvMsgEntity& root) {
  for (const char* name : kFields) {
    if (root.header(name) != nullptr) return true;
  }
  return false;
}

}  // namespace

bool parseRuleIds(std::string_view value, std::vector<unsigned int>& rules) {
  std::vector<unsigned int> found;
  while (!value.empty()) {
    unsigned int id = 0;
    const char* last = value.data() + value.size();
    const auto [end, fault] = std::from_chars(value.data(), last, id);
    if (fault != std::errc() || id == 0 || (end != last && *end != ' ')) return false;
    found.push_back(id);
    value.remove_prefix(static_cast<std::size_t>(end - value.data()));
    const std::size_t next = value.find_first_not_of(' ');
    value.remove_prefix(next == std::string_view::npos ? value.size() : next);
  }
  if (found.empty()) return false;
  rules.swap(found);
  return true;
}

AdapterError admitReprocessing(message::Message& msg, ReprocessTrust trust, const SealKeys* keys,
                               std::int64_t now, Reprocessing& found) {
  return guardedOutcome([&] {
    found = {};
    OvMsgEntity* root = msg.firstEntity();
    if (root == nullptr || !hasAny(*root)) return AdapterError::None;
    Reprocessing checked;
    const DividedMail mail(msg.receivedBytes());
    if (trust == ReprocessTrust::Assumed) {
      assume(mail, checked);
    } else {
      const Envelope envelope = readEnvelope(msg);
      const AdapterError error = SealCheck(mail, envelope, keys, now).run(checked);
      if (error != AdapterError::None) return error;
    }
    if (trust == ReprocessTrust::Nobody) takePassesOnly(checked);
    if (checked.honoured) {
      root->removeHeader(kReprocessSeal);
    } else {
      removeReprocessing(msg);
    }
    found = std::move(checked);
    return AdapterError::None;
  });
}

void removeReprocessing(OvMsgMailMessage& msg) {
  OvMsgEntity* root = msg.firstEntity();
  if (root == nullptr) return;
  for (const char* name : kFields) root->removeHeader(name);
}

}  // namespace host::delivery
