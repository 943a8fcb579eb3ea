#include "gateway/milter/ways_out.h"

#include <memory>

#include "gateway/policy/named_objects.h"
#include "library/namedobj/notify_area.h"

namespace gateway::milter {
namespace {

using policy::Snapshot;

/// Enough to find the rest by.
constexpr std::size_t kMostNamed = 20;

std::string listOf(const std::vector<std::string>& rules) {
  std::string all;
  for (std::size_t i = 0; i < rules.size() && i < kMostNamed; ++i) {
    all += (i == 0 ? "" : ", ") + rules[i];
  }
  if (rules.size() > kMostNamed) all += " and " + std::to_string(rules.size() - kMostNamed);
  return all;
}

std::string missing(const char* key, const std::vector<std::string>& rules) {
  return std::string(key) +
         " in section delivery is not set, and every message that these rules match is refused for "
         "now: " +
         listOf(rules);
}

class Collector {
 public:
  Collector(const Snapshot& policy, bool skipsScan) : policy_(policy), skipsScan_(skipsScan) {}

  WaysOut run() {
    for (const Snapshot::Rule& rule : policy_.rules()) {
      for (const Snapshot::Action& action : rule.actions) note(rule, action);
    }
    return std::move(ways_);
  }

 private:
  void note(const Snapshot::Rule& rule, const Snapshot::Action& action) {
    bool scanned = false;
    bool plain = false;
    switch (action.spec->type) {
      case KaviAction::Readdress:
      case KaviAction::Postpone:
        scanned = true;
        break;
      case KaviAction::Packwatch:
        plain = true;
        break;
      case KaviAction::Notify:
        for (const unsigned int id : action.objects) noteNotification(id, scanned, plain);
        break;
      default:
        return;
    }
    const std::string text = std::to_string(rule.id) + " (" + std::string(action.spec->name) + ")";
    if (scanned) ways_.toScan.push_back(text);
    if (plain) ways_.toPlain.push_back(text);
  }

  /// One that mails nobody is a trap only.
  void noteNotification(unsigned int id, bool& scanned, bool& plain) const {
    const Snapshot::Object* object = policy_.findObject(id);
    uiNotifyArea record;
    if (object == nullptr || !record.construct(object->setting.data(),
                                               static_cast<unsigned int>(object->setting.size()))) {
      return;
    }
    const bool mails = !record.recipients.empty() || record.notifySender || record.notifyRecipients;
    if (!mails) return;
    (record.attachMessage && !skipsScan_ ? scanned : plain) = true;
  }

  const Snapshot& policy_;
  const bool skipsScan_;
  WaysOut ways_;
};

}  // namespace

WaysOut waysOf(const policy::Snapshot& policy, Kavi::GlobalSetting& settings) {
  int skipsScan = 0;
  settings.getInt("NotificationSkipScan", skipsScan, "General-Notification", 0);
  return Collector(policy, skipsScan != 0).run();
}

std::vector<std::string> missingServers(const WaysOut& ways,
                                        const host::delivery::DeliverySettings& delivery) {
  std::vector<std::string> lines;
  if (!ways.toScan.empty() && !delivery.scan.isSet()) {
    lines.push_back(missing("scan_host", ways.toScan) +
                    " (set it to the listener that scans what comes back)");
  }
  if (!ways.toPlain.empty() && !delivery.plain.isSet()) {
    lines.push_back(missing("plain_host", ways.toPlain) +
                    " (set it to a listener that does not scan)");
  }
  return lines;
}

std::string missingListener(const WaysOut& ways, const host::delivery::DeliverySettings& delivery,
                            const std::string& listener) {
  if (ways.toScan.empty() || !delivery.scan.isSet() || !listener.empty()) return {};
  return "reinjection_listener in section milter is not set: what these rules send back to " +
         delivery.scan.text() +
         " comes in as new mail, and they act again until its passes are over: " +
         listOf(ways.toScan) +
         " (name that listener with milter_macro_daemon_name, and set the key to the name)";
}

}  // namespace gateway::milter
