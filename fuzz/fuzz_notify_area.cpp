// Records of notifications, and the mails made of them. Input: four bytes of length, then the text.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host/message/message.h"
#include "host/trap/trap_recorder.h"
#include "library/namedobj/notify_area.h"
#include "library/notification/notify.h"
#include "library/platform/is_adapter.h"
#include "library/tokens/action_utils.h"
#include "tests/fakes/adapter.h"

namespace {

using host::message::Buffer;
using host::message::Message;

void require(bool condition) {
  if (!condition) {
    std::abort();
  }
}

/// Reads every mail that it is given again.
class Reader final : public fakes::Adapter {
 public:
  int resendMessage(unsigned int& /*error*/, OvMsgMailMessage* msg, int /*flag*/) override {
    return read(*msg);
  }
  int deliverMessage(unsigned int& /*error*/, OvMsgMailMessage* msg) override { return read(*msg); }

 private:
  static int read(const OvMsgMailMessage& msg) {
    const auto& mail = dynamic_cast<const Message&>(msg);
    const auto again = Message::parse(Buffer::adopt(mail.toString()));
    // The fields of the template's making are all there are, whatever the texts hold.
    require(again->firstEntity()->headerCount() ==
            const_cast<Message&>(mail).firstEntity()->headerCount());
    for (const std::string& recipient : mail.envelope().recipients) {
      require(recipient.find_first_of("\r\n<>") == std::string::npos);
    }
    return 0;
  }
};

void notify(uiNotifyArea& record) {
  const auto scanned =
      Message::parse(Buffer::copyOf("From: a@b.example\r\nSubject: s\r\n\r\nbody\r\n"));
  scanned->setEnvelope({"a@b.example", {"one@b.example", "two@b.example"}, ""});
  Kavi::TokenMap<Kavi::ScanToken> tokens;
  tokens.set(Kavi::ScanToken::Sender, record.sender);
  tokens.set(Kavi::ScanToken::Recipients, record.name);
  tokens.set(Kavi::ScanToken::RuleId, "15");
  Reader adapter;
  const host::trap::TrapRecorder traps;
  bool flag = false;
  ActNotify::_runNameObj(scanned.get(), &scanned->received(), flag, tokens, adapter, &record);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool started = [] {
    ActionUtils::_build_token_string_table();
    return true;
  }();
  unsigned int length = 0;
  if (!started || size < sizeof length) {
    return 0;
  }
  std::memcpy(&length, data, sizeof length);
  const std::string text(reinterpret_cast<const char*>(data) + sizeof length, size - sizeof length);

  uiNotifyArea record;
  const bool read = record.construct(text.c_str(), length);
  if (!read) {
    return 0;
  }
  require(record.derived == (record.type >= 3 && record.type != 26));
  // What was accepted is written back in a form that is accepted, and stays as it is.
  const std::string written = record.serialize();
  uiNotifyArea again;
  require(again.construct(written.c_str(), static_cast<unsigned int>(written.size())));
  require(again.serialize() == written);
  require(again.body == record.body && again.type == record.type);
  notify(record);
  return 0;
}
