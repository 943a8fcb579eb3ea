#include "tests/fakes/adapter.h"

#include <cstdarg>
#include <cstdio>

#include "tests/fakes/fault_plan.h"

namespace fakes {
namespace {

constexpr unsigned int kInjectedError = 71;
constexpr unsigned int kNoMessage = 1;

}  // namespace

void Adapter::answer(unsigned int error, int result) {
  error_ = error;
  result_ = result;
}

int Adapter::record(unsigned int& error, const OvMsgMailMessage* msg, const char* format, ...) {
  if (platformCallFails()) {
    error = kInjectedError;
    return -1;
  }
  const Unswept unswept;
  errorOnEntry_ = error;
  char text[1024];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  calls_.push_back({msg, text});
  if (msg == nullptr) {
    error = kNoMessage;
    return -1;
  }
  if (error_ != 0) {
    error = error_;
  }
  return result_;
}

int Adapter::deleteMessage(unsigned int& error, OvMsgMailMessage* msg) {
  return record(error, msg, "delete");
}

int Adapter::postponeMessage(unsigned int& error, OvMsgMailMessage* msg, unsigned char fromHour,
                             unsigned char fromMinute, unsigned char toHour,
                             unsigned char toMinute) {
  return record(error, msg, "postpone %d:%d %d:%d", fromHour, fromMinute, toHour, toMinute);
}

int Adapter::handoffMessage(unsigned int& error, OvMsgMailMessage* msg, const char* host,
                            int port) {
  return record(error, msg, "handoff %s %d", host, port);
}

int Adapter::quarantineMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                               const char* directory, char (&path)[kQuarantinePathSize]) {
  const int result = record(error, msg, "quarantine '%s' %s", reserved, directory);
  if (result == 0 && error == 0) {
    std::snprintf(path, sizeof path, "%s/stored", directory);
  }
  return result;
}

int Adapter::archiveMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                            const char* directory, const char (&area)[kArchiveAreaNameSize]) {
  return record(error, msg, "archive '%s' %s %s", reserved, directory, area);
}

int Adapter::resendMessage(unsigned int& error, OvMsgMailMessage* msg, int flag) {
  return record(error, msg, "resend %d", flag);
}

int Adapter::deliverMessage(unsigned int& error, OvMsgMailMessage* msg) {
  return record(error, msg, "deliver");
}

}  // namespace fakes
