// Every way in which a server can misbehave at every stage, and what is to come of it.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "host/delivery/smtp_outcome.h"

namespace testing_host {

struct StageCase {
  std::string name;    ///< for the test's name
  std::string stage;   ///< as smtp_sink.py calls it
  std::string action;  ///< its JSON
  host::delivery::AdapterError error;
  host::delivery::SmtpStage at;
  bool isFinal;
  bool isUncertain = false;
};

inline void PrintTo(const StageCase& tested, std::ostream* out) { *out << tested.name; }

inline std::vector<StageCase> stageCases() {
  using host::delivery::AdapterError;
  using host::delivery::SmtpStage;
  struct Stage {
    const char* name;
    SmtpStage at;
    bool concernsMail;
  };
  const Stage stages[] = {
      {"connect", SmtpStage::Greeting, false}, {"ehlo", SmtpStage::Hello, false},
      {"mail", SmtpStage::Sender, true},       {"rcpt1", SmtpStage::Recipient, true},
      {"rcpt2", SmtpStage::Recipient, true},   {"data", SmtpStage::Data, true},
      {"end", SmtpStage::End, true},
  };
  std::vector<StageCase> cases;
  for (const Stage& stage : stages) {
    const bool recipient = stage.at == SmtpStage::Recipient;
    const bool end = stage.at == SmtpStage::End;
    const std::string name = stage.name;
    const auto add = [&](const char* how, const char* action, AdapterError error, bool isFinal,
                         bool isUncertain) {
      cases.push_back({name + how, name, action, error, stage.at, isFinal, isUncertain});
    };
    add("Tempfails", R"({"reply": "450 4.2.1 busy"})",
        recipient ? AdapterError::RecipientRefusedForNow : AdapterError::RefusedForNow, false,
        false);
    add("Refuses", R"({"reply": "550 5.7.1 no"})",
        recipient ? AdapterError::RecipientRefusedForGood : AdapterError::RefusedForGood,
        stage.concernsMail, false);
    add("SaysGoodbye", R"({"reply": "421 4.3.2 going down"})",
        recipient ? AdapterError::RecipientRefusedForNow : AdapterError::RefusedForNow, false,
        false);
    add("TalksNonsense", R"({"reply": "333 hm"})", AdapterError::BadReply, false, end);
    add("HangsUp", R"({"do": "hangup"})", AdapterError::ConnectionLost, false, end);
    add("Resets", R"({"do": "reset"})", AdapterError::ConnectionLost, false, end);
    add("Stalls", R"({"do": "stall"})", AdapterError::TimedOut, false, end);
  }
  cases.push_back({"bodyHangsUp", "body", R"({"do": "hangup"})", AdapterError::ConnectionLost,
                   SmtpStage::Body, false});
  cases.push_back({"bodyResets", "body", R"({"do": "reset"})", AdapterError::ConnectionLost,
                   SmtpStage::Body, false});
  cases.push_back(
      {"bodyStalls", "body", R"({"do": "stall"})", AdapterError::TimedOut, SmtpStage::Body, false});
  return cases;
}

}  // namespace testing_host
