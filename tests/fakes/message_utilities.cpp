// The message utilities, on fakes::Message. Each writes down how it was called.
#include <algorithm>
#include <string>
#include <utility>

#include "library/platform/msgu.h"
#include "tests/fakes/fault_plan.h"
#include "tests/fakes/message.h"

namespace {

// Every message of the test program is a fake.
fakes::MessageFacts& factsOf(OvMsgMailMessage* msg) {
  return static_cast<fakes::Message*>(msg)->facts();
}

const char* printable(const char* text) { return text != nullptr ? text : "(null)"; }

// Counts and writes down one call. \return whether it is to be answered at all.
bool answers(OvMsgMailMessage* msg, const std::string& call) {
  if (fakes::platformCallFails() || msg == nullptr) {
    return false;
  }
  factsOf(msg).calls.push_back(call);
  return true;
}

bool copy(const std::optional<std::string>& fact, std::string& value) {
  if (fact) {
    value = *fact;
  }
  return fact.has_value();
}

const char* pointer(const std::optional<std::string>& fact) {
  return fact ? fact->c_str() : nullptr;
}

// Entries that are blank are none, as in the real message library.
std::list<std::string> addressesIn(const std::string& text) {
  std::list<std::string> addresses;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t stop = std::min(text.find(';', start), text.size());
    std::string entry = text.substr(start, stop - start);
    if (entry.find_first_not_of(' ') != std::string::npos) {
      addresses.push_back(std::move(entry));
    }
    start = stop + 1;
  }
  return addresses;
}

}  // namespace

namespace msgu {

OvMsgEntity* getRootEntity(OvMsgMailMessage* msg) {
  return fakes::platformCallFails() || msg == nullptr ? nullptr
                                                      : static_cast<fakes::Message*>(msg)->root();
}

bool getHeader(OvMsgEntity* entity, const char* name, std::string& value) {
  value.clear();
  if (fakes::platformCallFails() || entity == nullptr) {
    return false;
  }
  const fakes::Header* header = static_cast<fakes::Entity*>(entity)->findField(name);
  if (header == nullptr) {
    return false;
  }
  value = header->valueText();
  return true;
}

bool setHeader(OvMsgEntity* entity, const char* name, const char* value, const char* /*charset*/) {
  if (fakes::platformCallFails() || entity == nullptr) {
    return false;
  }
  auto& fake = static_cast<fakes::Entity&>(*entity);
  if (fakes::Header* header = fake.findField(name)) {
    header->assign(value);
  } else {
    fake.addField(name, value);
  }
  return true;
}

bool getHeaders(OvMsgMailMessage* msg, std::string& text) {
  return answers(msg, "getHeaders") && copy(factsOf(msg).headers, text);
}

const char* getCharset(OvMsgMailMessage* msg) {
  return answers(msg, "getCharset") ? pointer(factsOf(msg).charset) : nullptr;
}

const char* getXMailId(OvMsgMailMessage* msg) {
  return answers(msg, "getXMailId") ? pointer(factsOf(msg).xMailId) : nullptr;
}

bool getSubject(OvMsgMailMessage* msg, const char* sourceCharset, const char* mailCharset,
                std::string& subject) {
  return answers(msg, std::string("getSubject ") + printable(sourceCharset) + " " +
                          printable(mailCharset)) &&
         copy(factsOf(msg).subject, subject) && factsOf(msg).subjectAnswer;
}

bool getRcpt(OvMsgMailMessage* msg, std::string& text, std::list<std::string>& list) {
  text.clear();
  list.clear();
  if (!answers(msg, "getRcpt")) {
    return false;
  }
  if (!factsOf(msg).listsRecipients) {
    return false;
  }
  list = factsOf(msg).recipients;
  for (const std::string& recipient : list) {
    text += recipient + ";";
  }
  return true;
}

bool setRcpt(OvMsgMailMessage* msg, const char* text, bool append) {
  if (!answers(msg, std::string("setRcpt ") + text + (append ? " append" : " replace"))) {
    return false;
  }
  fakes::MessageFacts& facts = factsOf(msg);
  std::list<std::string> addresses = addressesIn(text);
  if (std::find(addresses.begin(), addresses.end(), facts.refusedRecipient) != addresses.end()) {
    return false;
  }
  if (!append) {
    facts.recipients.clear();
  }
  facts.recipients.splice(facts.recipients.end(), addresses);
  return true;
}

}  // namespace msgu
