// One connection of a mail system.
#pragma once

#include <libmilter/mfapi.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "gateway/milter/collected_message.h"
#include "gateway/milter/message_scan.h"
#include "gateway/milter/server.h"

namespace gateway::milter {

/// What libmilter's callbacks do. Each answers what libmilter is to tell the mail system; what is
/// thrown has to be stopped by the caller. One thread at a time.
class Session {
 public:
  explicit Session(Server& server) : server_(server), counted_(server.connections()) {}

  void connect(const char* host, const _SOCK_ADDR* address);
  void hello(const char* name);
  /// Begins a message. \param arguments  the address, then ESMTP arguments; null behind the last
  void sender(char** arguments);
  void recipient(char** arguments);
  void header(const char* name, const char* value);
  void endHeader();
  void body(std::string_view piece);
  /// The message is whole: runs it and tells the mail system.
  sfsistat end(SMFICTX* context);
  /// The message does not come to its end.
  void abort() { message_.reset(); }

 private:
  CollectedMessage& message();
  Origin originOf(SMFICTX* context) const;

  Server& server_;
  Server::Count counted_;
  std::string clientName_;
  std::string clientAddress_;
  std::string helo_;
  std::unique_ptr<CollectedMessage> message_;
};

}  // namespace gateway::milter
