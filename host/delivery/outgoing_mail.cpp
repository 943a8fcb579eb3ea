#include "host/delivery/outgoing_mail.h"

#include <optional>
#include <vector>

#include "host/delivery/reprocess_fields.h"
#include "host/delivery/reprocess_seal.h"
#include "host/delivery/reprocessing.h"

namespace host::delivery {

namespace {

constexpr char kPostponeType[] = "postpone";

const std::vector<std::string_view>& allFields() {
  static const std::vector<std::string_view> kAll{kReprocessRules, kReprocessType, kReprocessSeal};
  return kAll;
}

std::string field(const char* name, const std::string& value) {
  return std::string(name) + ": " + value + "\r\n";
}

// What the two fields are to say.
struct Fields {
  std::string rules;
  std::string type;
};

// As they stand in the message; nothing when there is not exactly one of each.
std::optional<Fields> fieldsOf(const DividedMail& mail) {
  const std::vector<std::string> rules = mail.values(kReprocessRules);
  const std::vector<std::string> types = mail.values(kReprocessType);
  if (rules.size() != 1 || types.size() != 1) return std::nullopt;
  return Fields{rules[0], types[0]};
}

// With the rule that held the message back behind those that are skipped already.
Fields joined(const std::optional<Fields>& present, unsigned int rule) {
  std::vector<unsigned int> skipped;
  Fields fields{{}, kPostponeType};
  if (present && parseRuleIds(present->rules, skipped)) fields.rules = present->rules + " ";
  fields.rules += std::to_string(rule);
  return fields;
}

}  // namespace

void OutgoingMail::withoutFields() {
  const DividedMail mail(mail_);
  bool any = false;
  for (const std::string_view name : allFields()) any = any || !mail.values(name).empty();
  if (!any) return;
  header_ = mail.headerWithout(allFields());
  lead_ = mail.lead();
  rest_ = mail.rest();
}

AdapterError OutgoingMail::seal(const Envelope& envelope, unsigned int passes, const SealKeys& keys,
                                std::int64_t now) {
  if (passes >= kMaxPasses) return AdapterError::TooManyPasses;
  const DividedMail mail(mail_);
  std::optional<Fields> fields = fieldsOf(mail);
  if (rule_ != 0) fields = joined(fields, rule_);
  if (!fields) {
    withoutFields();
    return AdapterError::None;
  }
  std::string value;
  const SealedMail sealed{fields->rules, fields->type, envelope, bodyDigest(mail.body())};
  const AdapterError error = makeSeal(keys, sealed, passes, now, value);
  if (error != AdapterError::None) return error;
  // In front of everything: no mail system moves what stands below its own fields.
  header_ = field(kReprocessSeal, value);
  if (rule_ == 0) {
    header_ += mail.headerWithout({kReprocessSeal});
  } else {
    header_ += field(kReprocessRules, fields->rules) + field(kReprocessType, fields->type);
    const std::string header = mail.headerWithout(allFields());
    header_ += header;
    // A first line that is no field would join ours, or have to be parted from them on the way.
    const std::string_view rest = mail.rest();
    const bool bare = header.empty() && !rest.empty() && rest[0] != '\r' && rest[0] != '\n';
    if (bare) header_ += "\r\n";
  }
  lead_ = mail.lead();
  rest_ = mail.rest();
  return AdapterError::None;
}

}  // namespace host::delivery
