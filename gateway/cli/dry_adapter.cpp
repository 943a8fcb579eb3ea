#include "gateway/cli/dry_adapter.h"

#include "library/actions/disposition/quarantine.h"

namespace gateway::cli {

int DryAdapter::note(unsigned int& error, const char* operation) {
  operations_.emplace_back(operation);
  error = 0;
  return 0;
}

int DryAdapter::deleteMessage(unsigned int& error, OvMsgMailMessage*) {
  return note(error, "delete");
}

int DryAdapter::postponeMessage(unsigned int& error, OvMsgMailMessage*, unsigned char,
                                unsigned char, unsigned char, unsigned char) {
  return note(error, "postpone");
}

int DryAdapter::handoffMessage(unsigned int& error, OvMsgMailMessage*, const char*, int) {
  return note(error, "handoff");
}

int DryAdapter::quarantineMessage(unsigned int& error, OvMsgMailMessage* msg, const char*,
                                  const char*, char (&path)[kQuarantinePathSize]) {
  std::string filed;
  ActQuarantine::_genQuarantinePath(filed, msg);
  path[filed.copy(path, sizeof path - 1)] = '\0';
  return note(error, "quarantine");
}

int DryAdapter::archiveMessage(unsigned int& error, OvMsgMailMessage*, const char*, const char*,
                               const char (&)[kArchiveAreaNameSize]) {
  return note(error, "archive");
}

int DryAdapter::resendMessage(unsigned int& error, OvMsgMailMessage*, int) {
  return note(error, "resend");
}

int DryAdapter::deliverMessage(unsigned int& error, OvMsgMailMessage*) {
  return note(error, "deliver");
}

}  // namespace gateway::cli
