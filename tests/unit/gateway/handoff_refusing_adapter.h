// An adapter of which one operation fails.
#pragma once

#include "gateway/cli/dry_adapter.h"
#include "host/delivery/adapter_error.h"
#include "library/platform/is_adapter.h"

namespace gateway {

/// Refuses hand-offs, and does nothing else but remember what it was asked.
class HandoffRefusingAdapter final : public OvIsAdapter {
 public:
  int deleteMessage(unsigned int& e, OvMsgMailMessage* m) override {
    return dry.deleteMessage(e, m);
  }
  int postponeMessage(unsigned int& e, OvMsgMailMessage* m, unsigned char a, unsigned char b,
                      unsigned char c, unsigned char d) override {
    return dry.postponeMessage(e, m, a, b, c, d);
  }
  int handoffMessage(unsigned int& error, OvMsgMailMessage*, const char*, int) override {
    error = static_cast<unsigned int>(refusal);
    return 1;
  }
  int quarantineMessage(unsigned int& e, OvMsgMailMessage* m, const char* r, const char* d,
                        char (&path)[kQuarantinePathSize]) override {
    return dry.quarantineMessage(e, m, r, d, path);
  }
  int archiveMessage(unsigned int& e, OvMsgMailMessage* m, const char* r, const char* d,
                     const char (&area)[kArchiveAreaNameSize]) override {
    return dry.archiveMessage(e, m, r, d, area);
  }
  int resendMessage(unsigned int& e, OvMsgMailMessage* m, int f) override {
    return dry.resendMessage(e, m, f);
  }
  int deliverMessage(unsigned int& e, OvMsgMailMessage* m) override {
    return dry.deliverMessage(e, m);
  }
  cli::DryAdapter dry;
  host::delivery::AdapterError refusal = host::delivery::AdapterError::IndexBusy;
};

}  // namespace gateway
