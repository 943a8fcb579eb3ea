#include "gateway/engine/watched_adapter.h"

#include <utility>

#include "host/delivery/reprocess_fields.h"
#include "library/platform/msgu.h"

namespace gateway::engine {

void WatchedAdapter::note(OvMsgMailMessage* msg) {
  HandOver seen;
  if (OvMsgEntity* root = msgu::getRootEntity(msg); root != nullptr) {
    msgu::getHeader(root, host::delivery::kReprocessRules, seen.rules);
    msgu::getHeader(root, host::delivery::kReprocessType, seen.type);
  }
  handOvers_.push_back(std::move(seen));
}

int WatchedAdapter::deleteMessage(unsigned int& error, OvMsgMailMessage* msg) {
  note(msg);
  return adapter_.deleteMessage(error, msg);
}

int WatchedAdapter::postponeMessage(unsigned int& error, OvMsgMailMessage* msg,
                                    unsigned char fromHour, unsigned char fromMinute,
                                    unsigned char toHour, unsigned char toMinute) {
  note(msg);
  return adapter_.postponeMessage(error, msg, fromHour, fromMinute, toHour, toMinute);
}

int WatchedAdapter::handoffMessage(unsigned int& error, OvMsgMailMessage* msg, const char* host,
                                   int port) {
  note(msg);
  return adapter_.handoffMessage(error, msg, host, port);
}

int WatchedAdapter::quarantineMessage(unsigned int& error, OvMsgMailMessage* msg,
                                      const char* reserved, const char* directory,
                                      char (&path)[kQuarantinePathSize]) {
  note(msg);
  return adapter_.quarantineMessage(error, msg, reserved, directory, path);
}

int WatchedAdapter::archiveMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                                   const char* directory,
                                   const char (&area)[kArchiveAreaNameSize]) {
  note(msg);
  return adapter_.archiveMessage(error, msg, reserved, directory, area);
}

int WatchedAdapter::resendMessage(unsigned int& error, OvMsgMailMessage* msg, int flag) {
  note(msg);
  return adapter_.resendMessage(error, msg, flag);
}

int WatchedAdapter::deliverMessage(unsigned int& error, OvMsgMailMessage* msg) {
  note(msg);
  return adapter_.deliverMessage(error, msg);
}

}  // namespace gateway::engine
