// A delivery adapter that only writes down what it is asked.
#pragma once

#include <string>
#include <vector>

#include "library/platform/is_adapter.h"

namespace fakes {

struct AdapterCall {
  const OvMsgMailMessage* msg;
  std::string text;  ///< operation and arguments: "postpone 8:30 23:59"
};

/// Every operation on a message succeeds, unless a test or the fault plan says otherwise.
class Adapter : public OvIsAdapter {
 public:
  /// From now on: the code that every operation reports, and what it returns. The two are set apart
  /// because the actions do not all judge by the same one.
  void answer(unsigned int error, int result);
  const std::vector<AdapterCall>& calls() const { return calls_; }
  /// The `error` argument that the last call came with.
  unsigned int errorOnEntry() const { return errorOnEntry_; }

  int deleteMessage(unsigned int& error, OvMsgMailMessage* msg) override;
  int postponeMessage(unsigned int& error, OvMsgMailMessage* msg, unsigned char fromHour,
                      unsigned char fromMinute, unsigned char toHour,
                      unsigned char toMinute) override;
  int handoffMessage(unsigned int& error, OvMsgMailMessage* msg, const char* host,
                     int port) override;
  int quarantineMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                        const char* directory, char (&path)[kQuarantinePathSize]) override;
  int archiveMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                     const char* directory, const char (&area)[kArchiveAreaNameSize]) override;
  int resendMessage(unsigned int& error, OvMsgMailMessage* msg, int flag) override;
  int deliverMessage(unsigned int& error, OvMsgMailMessage* msg) override;

 private:
  int record(unsigned int& error, const OvMsgMailMessage* msg, const char* format, ...)
      __attribute__((format(printf, 4, 5)));

  unsigned int error_ = 0;
  int result_ = 0;
  unsigned int errorOnEntry_ = 0;
  std::vector<AdapterCall> calls_;
};

}  // namespace fakes
