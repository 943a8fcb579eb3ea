// An adapter that looks at the mails that are handed over.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "tests/fakes/adapter.h"
#include "tests/fakes/message.h"

/// What a mail was like when it was handed over.
struct CaughtMail {
  std::string how;                   ///< "deliver", "resend 1"
  std::vector<std::string> fields;   ///< "name:value" of its root
  std::vector<std::string> content;  ///< what was put into its root
  std::list<std::string> recipients;
  std::string sender;                   ///< "(none)" when it was never set
  std::vector<std::string> subject;     ///< how the subject was written: "value [charset]"
  std::vector<std::string> parameters;  ///< of its content type
  const OvMsgMailMessage* attached = nullptr;

  /// The value of the first field named so; "(none)" when there is none.
  std::string field(const std::string& name) const {
    for (const std::string& field : fields) {
      if (field.starts_with(name + ":")) {
        return field.substr(name.size() + 1);
      }
    }
    return "(none)";
  }
};

class MailCatcher : public fakes::Adapter {
 public:
  int resendMessage(unsigned int& error, OvMsgMailMessage* msg, int flag) override {
    look("resend " + std::to_string(flag), *static_cast<fakes::Message*>(msg));
    return Adapter::resendMessage(error, msg, flag);
  }
  int deliverMessage(unsigned int& error, OvMsgMailMessage* msg) override {
    look("deliver", *static_cast<fakes::Message*>(msg));
    return Adapter::deliverMessage(error, msg);
  }

  std::vector<CaughtMail> mails;

 private:
  void look(std::string how, fakes::Message& msg) {
    CaughtMail mail;
    mail.how = std::move(how);
    mail.fields = msg.fields();
    mail.content = msg.root()->calls();
    mail.recipients = msg.facts().recipients;
    mail.sender = msg.facts().sender.value_or("(none)");
    if (const fakes::Header* subject = msg.root()->findField("Subject")) {
      mail.subject = const_cast<fakes::Header*>(subject)->facts().writes;
    }
    if (const fakes::Header* type = msg.root()->findField("Content-Type")) {
      mail.parameters = const_cast<fakes::Header*>(type)->facts().parameters;
    }
    mail.attached = msg.root()->facts().attached;
    mails.push_back(std::move(mail));
  }
};
