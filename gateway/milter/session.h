// One connection of a mail system.
#pragma once

#include <libmilter/mfapi.h>

#include <cstddef>
#include <memory>
#include <optional>
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
  ~Session() { leaveMark(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

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
  void abort();

 private:
  CollectedMessage& message();
  /// Tells of the message; a mail system that has gone away has to find its effects done.
  void tell(SMFICTX* context, MessageScan& scan);
  /// The mail system says something more: it has the answer to the message before.
  void noteAnswered();
  /// The mail system has hung up. libmilter does not say whether it did so with QUIT or without
  /// reading the answer.
  void leaveMark();
  Origin originOf(SMFICTX* context) const;

  Server& server_;
  Server::Count counted_;
  std::string clientName_;
  std::string clientAddress_;
  std::string helo_;
  std::unique_ptr<CollectedMessage> message_;
  std::optional<host::store::Digest> marked_;  ///< the message whose answer is on its way
};

}  // namespace gateway::milter
