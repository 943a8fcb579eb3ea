// Reprocessing fields and their seal as they may come from anywhere.
#include <cstdint>
#include <filesystem>
#include <string>

#include "fuzz/check.h"
#include "host/delivery/outgoing_mail.h"
#include "host/delivery/reprocess_seal.h"
#include "host/delivery/reprocessing.h"
#include "host/delivery/spool_state.h"

namespace {

using fuzz::require;

using namespace host::delivery;

const SealKeys& keys() {
  static const SealKeys kKeys(
      (std::filesystem::temp_directory_path() / "kavi-fuzz-reprocess.keys").string());
  return kKeys;
}

class TextSink final : public OvMsgSink {
 public:
  bool write(const char* data, std::size_t size) override {
    text.append(data, size);
    return true;
  }
  std::string text;
};

// What cannot be ours is never honoured and leaves nothing behind.
void admit(const std::string& mail) {
  auto message = host::message::Message::parse(host::message::Buffer::copyOf(mail));
  message->setEnvelope({"s@example.org", {"r@example.com"}, ""});
  Reprocessing found;
  if (admitReprocessing(*message, ReprocessTrust::Sealed, &keys(), 1'700'000'000, found) !=
      AdapterError::None) {
    return;
  }
  require(!found.honoured);
  const OvMsgMailMessage& after = *message;
  auto* root = const_cast<OvMsgEntity*>(after.firstEntity());
  if (root != nullptr) require(root->header(kReprocessRules) == nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (const auto seal = parseSeal(text)) require(parseSeal(writeSeal(*seal)) == seal);
  std::vector<unsigned int> rules;
  if (parseRuleIds(text, rules)) require(!rules.empty());
  std::vector<SealKey> parsed;
  parseSealKeys(text, parsed);
  parseSpoolLog(text);
  admit(text);
  admit("X-kavi-reprocess-rules: 1\r\nX-kavi-reprocess-type: t\r\nX-kavi-reprocess-seal: " + text);

  OutgoingMail plain(text);
  plain.withoutFields();
  TextSink sink;
  plain.source().writeTo(sink);
  require(DividedMail(sink.text).values(kReprocessRules).empty());
  require(bodyDigest(DividedMail(sink.text).body()) == bodyDigest(DividedMail(text).body()));
  return 0;
}
