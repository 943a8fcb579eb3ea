#include "gateway/policy/notifications.h"

#include <charconv>

#include "gateway/policy/delivery_codecs.h"
#include "gateway/policy/settings_object.h"
#include "gateway/policy/suggest.h"
#include "gateway/policy/text_entry.h"
#include "gateway/policy/text_file.h"
#include "gateway/policy/token_check.h"
#include "library/namedobj/notify_area.h"

namespace gateway::policy {
namespace {

constexpr TextEntry kBody{.owner = "the notification",
                          .key = "body",
                          .fileKey = "body_file",
                          .example = "body: \"A rule matched.\" or body_file: notice.txt",
                          .maxBytes = kMaxNotificationBody};

class EntryReader {
 public:
  EntryReader(const ObjectEntry& entry, const FaultSink& fault) : entry_(entry), fault_(fault) {}

  bool read(uiNotifyArea& record) {
    record.name = entry_.name;
    readSender(record.sender);
    if (const Node* value = entry_.item.find("recipients")) {
      note(readRecipients(*value, record.recipients, fault_));
    }
    readLine("subject", record.subject);
    readBody(record.body);
    readLine("trap", record.trapMessage);
    readFlag("notify_sender", record.notifySender);
    readFlag("notify_recipients", record.notifyRecipients);
    record.sendTrap = !record.trapMessage.empty();
    readFlag("send_trap", record.sendTrap);
    readType(record.type);
    readAttachment(record);
    if (good_ && record.sendTrap && record.trapMessage.empty()) {
      fail(entry_.item.line, "send_trap is set, but the trap has no text (write trap: \"...\")");
    }
    return good_;
  }

 private:
  void fail(int line, const std::string& message) {
    good_ = false;
    fault_(line, message);
  }
  void note(bool good) { good_ = good_ && good; }

  /// One line of text. One that is not there stays empty.
  bool readLine(std::string_view key, std::string& line) {
    const Node* value = entry_.item.find(key);
    if (value == nullptr) return false;
    const std::string called = "the " + std::string(key);
    if (value->kind != Node::Kind::Scalar) {
      fail(value->line, called + " must be a text");
    } else if (const auto found = findTextFault(value->text)) {
      fail(value->line, called + " has " + found->reason);
    } else if (value->text.find_first_of("\r\n") != std::string::npos) {
      fail(value->line, called + " has a line break (write one line)");
    } else if (value->text.size() > kMaxNotificationLine) {
      fail(value->line, called + " is longer than " + std::to_string(kMaxNotificationLine) +
                            " bytes (shorten it)");
    } else {
      line = value->text;
      return true;
    }
    return false;
  }

  /// "user@example.org" or "Name <user@example.org>".
  void readSender(std::string& sender) {
    if (!readLine("sender", sender) || sender.empty()) return;
    const int line = entry_.item.find("sender")->line;
    const std::size_t open = sender.rfind('<');
    const bool hasName = open != std::string::npos && sender.ends_with('>');
    const std::string_view address =
        hasName ? std::string_view(sender).substr(open + 1, sender.size() - open - 2)
                : std::string_view(sender);
    note(checkAddress(address, line, fault_));
  }

  void readBody(std::string& body) {
    if (entry_.item.find(kBody.key) == nullptr && entry_.item.find(kBody.fileKey) == nullptr) {
      return;
    }
    int line = 0;
    note(readTextEntry(entry_, kBody, body, line, fault_));
  }

  void readFlag(std::string_view key, bool& flag) {
    const Node* value = entry_.item.find(key);
    if (value == nullptr) return;
    if (value->text == "yes" || value->text == "true") {
      flag = true;
    } else if (value->text == "no" || value->text == "false") {
      flag = false;
    } else {
      fail(value->line, std::string(key) + " is " + inQuotes(value->text) + " (write yes or no)");
    }
  }

  void readType(unsigned int& type) {
    const Node* value = entry_.item.find("type");
    if (value == nullptr) return;
    const char* const end = value->text.data() + value->text.size();
    const auto [rest, error] = std::from_chars(value->text.data(), end, type);
    if (value->text.empty() || error != std::errc() || rest != end) {
      fail(value->line, "type is " + inQuotes(value->text) +
                            " (write a whole number, 0 to 4294967295: the trap carries it)");
    }
  }

  void readAttachment(uiNotifyArea& record) {
    const Node* value = entry_.item.find("attach");
    if (value == nullptr) return;
    record.attachMessage = value->text == "received" || value->text == "current";
    record.attachModifiedMessage = value->text == "current";
    if (!record.attachMessage && value->text != "no") {
      fail(value->line, "attach is " + inQuotes(value->text) +
                            " (write no, received for the message as it came, or current for it "
                            "as the actions before have left it)");
    }
  }

  const ObjectEntry& entry_;
  const FaultSink& fault_;
  bool good_ = true;
};

}  // namespace

bool encodeNotification(const ObjectEntry& entry, std::string& setting, const FaultSink& fault) {
  uiNotifyArea record;
  if (!EntryReader(entry, fault).read(record)) return false;
  setting = record.serialize();
  // Read back for the flag that follows from the type.
  uiNotifyArea stored;
  if (!constructFrom(stored, setting)) return false;
  setting = stored.serialize();
  return true;
}

bool decodeNotification(const std::string& setting, EntryKeys& keys) {
  uiNotifyArea record;
  if (!constructFrom(record, setting)) return false;
  const auto addText = [&keys](std::string_view key, const std::string& text) {
    if (!text.empty()) keys.add(key, text);
  };
  addText("sender", record.sender);
  if (const auto addresses = splitAddresses(record.recipients); !addresses.empty()) {
    keys.addList("recipients", addresses);
  }
  addText("subject", record.subject);
  addText(kBody.key, record.body);
  addText("trap", record.trapMessage);
  if (record.sendTrap == record.trapMessage.empty()) {
    keys.add("send_trap", record.sendTrap ? "yes" : "no");
  }
  if (record.type != 0) keys.add("type", std::to_string(record.type));
  if (record.notifySender) keys.add("notify_sender", "yes");
  if (record.notifyRecipients) keys.add("notify_recipients", "yes");
  if (record.attachMessage)
    keys.add("attach", record.attachModifiedMessage ? "current" : "received");
  return true;
}

std::string doubtNotification(const std::string& setting) {
  uiNotifyArea record;
  if (!constructFrom(record, setting)) return {};
  // A '%' at the end of one text must not open a token with one in the next.
  std::string doubt =
      doubtAboutTokens(record.subject + "\n" + record.body + "\n" + record.trapMessage);
  if (!doubt.empty()) return doubt;
  const bool hasReader = !record.recipients.empty() || record.notifySender ||
                         record.notifyRecipients || record.sendTrap;
  return hasReader ? std::string() : "tells nobody (name recipients, or a trap)";
}

}  // namespace gateway::policy
