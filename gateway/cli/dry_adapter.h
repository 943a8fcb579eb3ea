// The adapter of runs that leave no files behind.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "library/platform/is_adapter.h"

namespace gateway::cli {

/// Says yes to everything and does nothing, but for remembering what it was asked.
class DryAdapter final : public OvIsAdapter {
 public:
  int deleteMessage(unsigned int& error, OvMsgMailMessage* msg) override;
  int postponeMessage(unsigned int& error, OvMsgMailMessage* msg, unsigned char fromHour,
                      unsigned char fromMinute, unsigned char toHour,
                      unsigned char toMinute) override;
  int handoffMessage(unsigned int& error, OvMsgMailMessage* msg, const char* host,
                     int port) override;
  /// The path is that under which a gateway would file the message; nothing is there.
  int quarantineMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                        const char* directory, char (&path)[kQuarantinePathSize]) override;
  int archiveMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                     const char* directory, const char (&area)[kArchiveAreaNameSize]) override;
  int resendMessage(unsigned int& error, OvMsgMailMessage* msg, int flag) override;
  int deliverMessage(unsigned int& error, OvMsgMailMessage* msg) override;

  /// The operations asked for, in order.
  const std::vector<std::string>& operations() const { return operations_; }

 private:
  int note(unsigned int& error, const char* operation);
  std::vector<std::string> operations_;
};

}  // namespace gateway::cli
