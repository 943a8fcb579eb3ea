// Runs notifications and samples on the real platform and prints the mails, for a test to read.
//
//   notification_composer < requests        one JSON object to a line:
//     settings    text of a settings file
//     record      fields of the notification by name; absent for a sample of every leaf
//     tokens      values by code, in hexadecimal
//     from, to    the scanned mail's envelope
//     file        the scanned mail
//     change      a field that an action before has set, "Name: value"
//
// For each, one line of JSON: result, log (lines of level 1), mails: how, sender, recipients, bytes
// (in hexadecimal).
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/core/ini_settings.h"
#include "host/message/message.h"
#include "library/framework/init_action_lib.h"
#include "library/namedobj/notify_area.h"
#include "library/notification/feedback.h"
#include "library/notification/notify.h"
#include "library/platform/is_adapter.h"
#include "library/platform/log_msg.h"
#include "library/platform/msgu.h"

namespace {

using host::message::Message;
using Json = nlohmann::json;

std::string hexOf(const std::string& bytes) {
  std::string hex;
  char digits[3];
  for (const char byte : bytes) {
    std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
    hex += digits;
  }
  return hex;
}

std::string bytesOf(const std::string& hex) {
  std::string bytes;
  for (std::size_t at = 0; at + 1 < hex.size(); at += 2) {
    bytes += static_cast<char>(std::stoi(hex.substr(at, 2), nullptr, 16));
  }
  return bytes;
}

class Failures final : public Kavi::LogMsg {
 public:
  int getLevel() const override { return 1; }
  void write(int /*level*/, const char* format, ...) override {
    char text[2048];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    lines.push_back(text);
  }
  std::vector<std::string> lines;
};

/// Takes what is sent; nothing else is asked of it here.
class Outbox final : public OvIsAdapter {
 public:
  int deleteMessage(unsigned int& error, OvMsgMailMessage*) override { return refuse(error); }
  int postponeMessage(unsigned int& error, OvMsgMailMessage*, unsigned char, unsigned char,
                      unsigned char, unsigned char) override {
    return refuse(error);
  }
  int handoffMessage(unsigned int& error, OvMsgMailMessage*, const char*, int) override {
    return refuse(error);
  }
  int quarantineMessage(unsigned int& error, OvMsgMailMessage*, const char*, const char*,
                        char (&)[kQuarantinePathSize]) override {
    return refuse(error);
  }
  int archiveMessage(unsigned int& error, OvMsgMailMessage*, const char*, const char*,
                     const char (&)[kArchiveAreaNameSize]) override {
    return refuse(error);
  }
  int resendMessage(unsigned int& /*error*/, OvMsgMailMessage* msg, int /*flag*/) override {
    return take("resend", *msg);
  }
  int deliverMessage(unsigned int& /*error*/, OvMsgMailMessage* msg) override {
    return take("deliver", *msg);
  }

  std::vector<Json> mails;

 private:
  static int refuse(unsigned int& error) {
    error = 1;
    return -1;
  }
  int take(const char* how, const OvMsgMailMessage& msg) {
    const auto& message = dynamic_cast<const Message&>(msg);
    Json mail;
    mail["how"] = how;
    mail["sender"] = message.envelope().sender.value_or("(none)");
    mail["recipients"] = message.envelope().recipients;
    mail["bytes"] = hexOf(message.toString());
    mails.push_back(std::move(mail));
    return 0;
  }
};

uiNotifyArea recordOf(const Json& fields) {
  uiNotifyArea record;
  record.name = fields.value("name", "test");
  record.sender = fields.value("sender", "");
  record.recipients = fields.value("recipients", "");
  record.subject = fields.value("subject", "");
  record.body = bytesOf(fields.value("body", ""));
  record.notifySender = fields.value("notify_sender", false);
  record.notifyRecipients = fields.value("notify_recipients", false);
  record.attachMessage = fields.value("attach", false);
  record.attachModifiedMessage = fields.value("attach_modified", false);
  return record;
}

std::string marksOf(Message& scanned) {
  std::string marks;
  for (OvMsgEntity* entity = scanned.firstEntity(); entity != nullptr;
       entity = entity->nextEntity()) {
    if (entity->kind() != OvMsgEntityKind::Leaf) continue;
    char mark[64];
    std::snprintf(mark, sizeof mark, "1 %" PRIxPTR ";", reinterpret_cast<std::uintptr_t>(entity));
    marks += mark;
  }
  return marks;
}

void change(Message& scanned, const std::string& field) {
  const std::size_t colon = field.find(": ");
  if (colon == std::string::npos) return;
  msgu::setHeader(scanned.firstEntity(), field.substr(0, colon).c_str(),
                  field.substr(colon + 2).c_str(), nullptr);
}

Json answer(const Json& request) {
  Failures log;
  host::core::IniSettings settings;
  std::string error;
  settings.loadText(request.value("settings", ""), "settings", error);
  InitActionLib(settings, log);
  auto scanned = Message::parse(host::message::Buffer::readFile(request.at("file"), error));
  scanned->setEnvelope({request.value("from", "from@scanned.example"),
                        request.value("to", std::vector<std::string>{}), ""});
  change(*scanned, request.value("change", ""));
  Kavi::TokenMap<Kavi::ScanToken> tokens;
  tokens.set(Kavi::ScanToken::RuleId, "15");
  if (const auto values = request.find("tokens"); values != request.end()) {
    for (const auto& [code, value] : values->items()) {
      tokens.set(static_cast<Kavi::ScanToken>(std::stoi(code)), bytesOf(value));
    }
  }
  Outbox outbox;
  bool result = false;
  bool flag = false;
  if (request.contains("record")) {
    uiNotifyArea record = recordOf(request["record"]);
    result =
        ActNotify::_runNameObj(scanned.get(), &scanned->received(), flag, tokens, outbox, &record);
  } else {
    tokens.set(Kavi::ScanToken::MarkedForFeedback, marksOf(*scanned));
    ActPackwatch action;
    result = action.takeAction(scanned.get(), nullptr, flag, tokens, outbox, {});
  }
  Json reply;
  reply["result"] = result;
  reply["log"] = log.lines;
  reply["mails"] = outbox.mails;
  return reply;
}

}  // namespace

int main() {
  for (std::string line; std::getline(std::cin, line);) {
    std::cout << answer(Json::parse(line)).dump(-1, ' ', true, Json::error_handler_t::replace)
              << std::endl;
  }
  return 0;
}
