#include "gateway/milter/session.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <utility>
#include <vector>

#include "gateway/milter/tell.h"

namespace gateway::milter {
namespace {

std::string textOf(const char* text) { return text == nullptr ? std::string() : text; }

std::string symbol(SMFICTX* context, const char* name) {
  return textOf(smfi_getsymval(context, const_cast<char*>(name)));
}

std::string addressText(const _SOCK_ADDR* address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (address == nullptr) return {};
  const void* bytes = nullptr;
  if (address->sa_family == AF_INET) {
    bytes = &reinterpret_cast<const sockaddr_in*>(address)->sin_addr;
  } else if (address->sa_family == AF_INET6) {
    bytes = &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr;
  }
  if (bytes == nullptr) return {};
  return textOf(::inet_ntop(address->sa_family, bytes, text.data(), text.size()));
}

/// What stands behind the address.
std::vector<std::string> esmtpArguments(char** arguments) {
  std::vector<std::string> found;
  for (char** next = arguments; *next != nullptr; ++next) found.emplace_back(*next);
  if (!found.empty()) found.erase(found.begin());
  return found;
}

}  // namespace

void Session::connect(const char* host, const _SOCK_ADDR* address) {
  clientName_ = textOf(host);
  clientAddress_ = addressText(address);
}

void Session::hello(const char* name) {
  noteAnswered();
  helo_ = textOf(name);
}

void Session::noteAnswered() {
  if (marked_) server_.gateway().answers->end(*marked_);
  marked_.reset();
}

void Session::leaveMark() {
  if (marked_) server_.gateway().answers->leave(*marked_);
  marked_.reset();
}

// libmilter calls this, too, when the connection breaks: it proves no answer.
void Session::abort() { message_.reset(); }

void Session::sender(char** arguments) {
  noteAnswered();
  const Gateway& gateway = server_.gateway();
  message_ = std::make_unique<CollectedMessage>(gateway.settings.limits, gateway.temporaryFolder,
                                                gateway.settings.memoryBytes);
  message_->setSender(textOf(arguments[0]), esmtpArguments(arguments));
}

void Session::recipient(char** arguments) {
  message().addRecipient(textOf(arguments[0]), esmtpArguments(arguments));
}

void Session::header(const char* name, const char* value) {
  message().addHeader(textOf(name), textOf(value));
}

void Session::endHeader() { message().endHeader(); }

void Session::body(std::string_view piece) { message().addBody(piece); }

CollectedMessage& Session::message() {
  if (message_ == nullptr) throw std::logic_error("a part of a message that never began");
  return *message_;
}

Origin Session::originOf(SMFICTX* context) const {
  // The queue id is known only once a recipient was accepted: now at the latest.
  return {.queueId = symbol(context, "i"),
          .clientName = clientName_,
          .clientAddress = clientAddress_,
          .helo = helo_,
          .user = symbol(context, "{auth_authen}"),
          .listener = symbol(context, "{daemon_name}")};
}

void Session::tell(SMFICTX* context, MessageScan& scan) {
  if (!scan.changes().isEmpty()) {
    if (!tellChanges(context, scan.changes(), scan.message())) scan.failTelling();
  } else if (scan.hasActed() && smfi_progress(context) != MI_SUCCESS) {
    scan.failTelling();
  }
}

sfsistat Session::end(SMFICTX* context) {
  const Server::Count atWork(server_.messagesAtWork());
  const std::unique_ptr<CollectedMessage> collected =
      std::exchange(message_, std::unique_ptr<CollectedMessage>());
  if (collected == nullptr) throw std::logic_error("the end of a message that never began");
  MessageScan scan(server_.gateway(), *collected, originOf(context));
  std::atomic<bool> isGone = false;
  {
    const Progress::Watch watch(server_.progress(), [context, &isGone] {
      if (smfi_progress(context) != MI_SUCCESS) isGone = true;
    });
    scan.run();
  }
  if (isGone) {
    scan.failTelling();
  } else {
    tell(context, scan);
  }
  const sfsistat status = tellAnswer(context, scan.answer());
  scan.settle();
  marked_ = scan.marked();
  // It looks through the whole spool: not for mail that put nothing there.
  if (scan.mayHaveSpooled()) server_.wakeSender();
  return status;
}

}  // namespace gateway::milter
