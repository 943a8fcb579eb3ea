// The settings of notifications. Input: the ten values in their order, each up to a line break.
#include <cstdint>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>

#include "host/core/ini_settings.h"
#include "host/message/message.h"
#include "host/trap/trap_recorder.h"
#include "library/namedobj/notify_area.h"
#include "library/notification/notify.h"
#include "library/notification/notify_settings.h"
#include "library/platform/global_setting.h"
#include "library/platform/log_msg.h"
#include "tests/fakes/adapter.h"

namespace {

using host::message::Buffer;
using host::message::Message;

void require(bool condition) {
  if (!condition) {
    std::abort();
  }
}

constexpr const char* kKeys[] = {"IgnoreSnmpError",
                                 "SNMPServer",
                                 "Community",
                                 "SNMPVersion",
                                 "MailFrom",
                                 "NotificationSkipScan",
                                 "NotificationHideRecipients",
                                 "NotificationGetSenderFromMIME",
                                 "scanner_id",
                                 "AddMsgIdInPolicyNotify"};

/// Keeps the values of one input. One that is missing in it is missing here.
class Values final : public Kavi::GlobalSetting {
 public:
  explicit Values(const std::string& input) {
    std::istringstream lines(input);
    for (const char* key : kKeys) {
      std::string line;
      if (std::getline(lines, line)) values_[key] = line;
    }
  }
  int getString(const char* key, std::string& value, const char*, int) override {
    const auto found = values_.find(key);
    if (found == values_.end()) return 1;
    value = found->second;
    return 0;
  }
  int getInt(const char* key, int& value, const char*, int) override {
    const auto found = values_.find(key);
    return found != values_.end() && host::core::parseInt(found->second, value) ? 0 : 1;
  }
  bool has(const char* key) const { return values_.count(key) != 0; }

 private:
  std::map<std::string, std::string> values_;
};

class Silence final : public Kavi::LogMsg {
 public:
  int getLevel() const override { return 0; }
  void write(int /*level*/, const char* /*format*/, ...) override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Values values(std::string(reinterpret_cast<const char*>(data), size));
  Silence log;
  require(ActNotify::init(values, log));
  require(values.has("SNMPServer") || library::g_snmp_server_ip.empty());
  require(values.has("NotificationHideRecipients") || library::g_hide_recipients);

  uiNotifyArea record;
  record.recipients = "admin@a.example";
  record.notifySender = record.notifyRecipients = record.attachMessage = record.sendTrap = true;
  record.trapMessage = "text";
  const auto scanned = Message::parse(Buffer::copyOf("From: a@b.example\r\n\r\nbody\r\n"));
  scanned->setEnvelope({"a@b.example", {"one@b.example"}, ""});
  Kavi::TokenMap<Kavi::ScanToken> tokens;
  fakes::Adapter adapter;
  const host::trap::TrapRecorder traps;
  bool flag = false;
  require(
      ActNotify::_runNameObj(scanned.get(), &scanned->received(), flag, tokens, adapter, &record));
  require(adapter.calls().size() == 1);
  require(traps.traps().size() == (library::g_snmp_server_ip.empty() ? 0u : 1u));
  return 0;
}
