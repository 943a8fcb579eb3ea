// An adapter that looks at the message when it is handed over.
#pragma once

#include <list>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/fakes/adapter.h"
#include "tests/fakes/message.h"

/// Keeps the message's fields and recipients as they were at the last quarantine or resend, and
/// runs a test's own check then.
class WatchingAdapter : public fakes::Adapter {
 public:
  explicit WatchingAdapter(fakes::Message& msg) : msg_(msg) {}

  int quarantineMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                        const char* directory, char (&path)[kQuarantinePathSize]) override {
    look();
    for (const char byte : path) {
      zeroed = zeroed && byte == '\0';
    }
    return Adapter::quarantineMessage(error, msg, reserved, directory, path);
  }
  int resendMessage(unsigned int& error, OvMsgMailMessage* msg, int flag) override {
    look();
    return Adapter::resendMessage(error, msg, flag);
  }

  std::vector<std::string> fields;
  std::list<std::string> recipients;
  bool zeroed = true;  ///< whether the path's buffer came zeroed
  bool throws = false;

 private:
  void look() {
    fields = msg_.fields();
    recipients = msg_.facts().recipients;
    if (throws) {
      throw std::runtime_error("gone");
    }
  }

  fakes::Message& msg_;
};
