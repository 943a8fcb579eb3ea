#include "host/delivery/outgoing_mail.h"

#include <vector>

#include "host/delivery/reprocess_fields.h"
#include "host/delivery/reprocess_seal.h"

namespace host::delivery {

namespace {

const std::vector<std::string_view>& allFields() {
  static const std::vector<std::string_view> kAll{kReprocessRules, kReprocessType, kReprocessSeal};
  return kAll;
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
  const std::vector<std::string> rules = mail.values(kReprocessRules);
  const std::vector<std::string> types = mail.values(kReprocessType);
  if (rules.size() != 1 || types.size() != 1) {
    withoutFields();
    return AdapterError::None;
  }
  std::string value;
  const SealedMail sealed{rules[0], types[0], envelope, bodyDigest(mail.body())};
  const AdapterError error = makeSeal(keys, sealed, passes, now, value);
  if (error != AdapterError::None) return error;
  // In front of everything: no mail system moves what stands below its own fields.
  header_ =
      std::string(kReprocessSeal) + ": " + value + "\r\n" + mail.headerWithout({kReprocessSeal});
  lead_ = mail.lead();
  rest_ = mail.rest();
  return AdapterError::None;
}

}  // namespace host::delivery
