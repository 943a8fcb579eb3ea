#include "gateway/milter/server.h"

#include <grp.h>
#include <libmilter/mfapi.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <thread>
#include <utility>

#include "gateway/milter/instance_lock.h"
#include "gateway/milter/session.h"

namespace gateway::milter {
namespace {

constexpr std::chrono::seconds kProgressInterval{20};
/// How long a stopping daemon waits for answers to be on their way.
constexpr std::chrono::seconds kLastAnswers{1};
/// How long it waits for what was broken off.
constexpr std::chrono::seconds kBreakingOff{5};
static_assert(kLastAnswers + kBreakingOff < Server::kFinishMargin);
constexpr int kBacklog = 128;

/// libmilter's callbacks carry nothing of ours before a connection has its own state.
std::atomic<Server*> theServer = nullptr;

/// Runs a callback. What is thrown becomes a temporary failure: the sender keeps the message.
template <class Body>
sfsistat guarded(Body&& body) noexcept {
  try {
    return body();
  } catch (const std::exception& fault) {
    if (Server* server = theServer) {
      server->gateway().log.write(1, "a message could not be taken: %s", fault.what());
    }
  } catch (...) {
    if (Server* server = theServer) server->gateway().log.write(1, "a message could not be taken");
  }
  return SMFIS_TEMPFAIL;
}

/// The same on the session of a connection.
template <class Body>
sfsistat onSession(SMFICTX* context, Body&& body) noexcept {
  return guarded([&]() -> sfsistat {
    auto* session = static_cast<Session*>(smfi_getpriv(context));
    if (session == nullptr) return SMFIS_TEMPFAIL;
    body(*session);
    return SMFIS_CONTINUE;
  });
}

/// The same for a step whose answer the mail system does not wait for. A message that one fails for
/// is dropped, so that its end is refused.
template <class Body>
sfsistat onUnanswered(SMFICTX* context, Body&& body) noexcept {
  if (onSession(context, body) != SMFIS_CONTINUE) {
    if (auto* session = static_cast<Session*>(smfi_getpriv(context))) session->abort();
  }
  return SMFIS_NOREPLY;
}

sfsistat onNegotiate(SMFICTX*, unsigned long actions, unsigned long steps, unsigned long,
                     unsigned long, unsigned long* wantedActions, unsigned long* wantedSteps,
                     unsigned long* more1, unsigned long* more2) {
  return guarded([&]() -> sfsistat {
    constexpr unsigned long kActions = SMFIF_ADDHDRS | SMFIF_CHGHDRS | SMFIF_CHGBODY |
                                       SMFIF_ADDRCPT | SMFIF_DELRCPT | SMFIF_CHGFROM;
    constexpr unsigned long kNotNeeded = SMFIP_NOUNKNOWN | SMFIP_NODATA;
    // Nothing is decided before the end: to wait for each field costs more than all that is done.
    // libmilter answers in our place where a mail system insists.
    constexpr unsigned long kUnanswered = SMFIP_NR_HDR | SMFIP_NR_EOH | SMFIP_NR_BODY;
    constexpr unsigned long kNeeded = SMFIP_HDR_LEADSPC | kUnanswered;
    Server* server = theServer;
    if (server == nullptr) return SMFIS_REJECT;
    if ((actions & kActions) != kActions || (steps & kNeeded) != kNeeded) {
      server->gateway().log.write(
          1, "a mail system connected that does not let everything be changed (Postfix does)");
      return SMFIS_REJECT;
    }
    *wantedActions = kActions;
    *wantedSteps = kNeeded | (steps & kNotNeeded);
    *more1 = 0;
    *more2 = 0;
    return SMFIS_CONTINUE;
  });
}

sfsistat onConnect(SMFICTX* context, char* host, _SOCK_ADDR* address) {
  return guarded([&]() -> sfsistat {
    Server* server = theServer;
    if (server == nullptr) return SMFIS_TEMPFAIL;
    auto session = std::make_unique<Session>(*server);
    session->connect(host, address);
    if (smfi_setpriv(context, session.get()) != MI_SUCCESS) return SMFIS_TEMPFAIL;
    static_cast<void>(session.release());  // the context holds it until onClose
    return SMFIS_CONTINUE;
  });
}

sfsistat onHello(SMFICTX* context, char* name) {
  return onSession(context, [&](Session& session) { session.hello(name); });
}

sfsistat onSender(SMFICTX* context, char** arguments) {
  return onSession(context, [&](Session& session) { session.sender(arguments); });
}

sfsistat onRecipient(SMFICTX* context, char** arguments) {
  return onSession(context, [&](Session& session) { session.recipient(arguments); });
}

sfsistat onHeader(SMFICTX* context, char* name, char* value) {
  return onUnanswered(context, [&](Session& session) { session.header(name, value); });
}

sfsistat onEndHeader(SMFICTX* context) {
  return onUnanswered(context, [](Session& session) { session.endHeader(); });
}

sfsistat onBody(SMFICTX* context, unsigned char* bytes, std::size_t size) {
  return onUnanswered(context, [&](Session& session) {
    session.body({reinterpret_cast<const char*>(bytes), size});
  });
}

sfsistat onEnd(SMFICTX* context) {
  return guarded([&]() -> sfsistat {
    auto* session = static_cast<Session*>(smfi_getpriv(context));
    return session == nullptr ? SMFIS_TEMPFAIL : session->end(context);
  });
}

sfsistat onAbort(SMFICTX* context) {
  return onSession(context, [](Session& session) { session.abort(); });
}

sfsistat onClose(SMFICTX* context) {
  return guarded([&]() -> sfsistat {
    const std::unique_ptr<Session> session(static_cast<Session*>(smfi_getpriv(context)));
    smfi_setpriv(context, nullptr);
    return SMFIS_CONTINUE;
  });
}

smfiDesc description() {
  static char name[] = "kavi-milter";
  smfiDesc callbacks{};
  callbacks.xxfi_name = name;
  callbacks.xxfi_version = SMFI_VERSION;
  callbacks.xxfi_flags =
      SMFIF_ADDHDRS | SMFIF_CHGHDRS | SMFIF_CHGBODY | SMFIF_ADDRCPT | SMFIF_DELRCPT | SMFIF_CHGFROM;
  callbacks.xxfi_connect = onConnect;
  callbacks.xxfi_helo = onHello;
  callbacks.xxfi_envfrom = onSender;
  callbacks.xxfi_envrcpt = onRecipient;
  callbacks.xxfi_header = onHeader;
  callbacks.xxfi_eoh = onEndHeader;
  callbacks.xxfi_body = onBody;
  callbacks.xxfi_eom = onEnd;
  callbacks.xxfi_abort = onAbort;
  callbacks.xxfi_close = onClose;
  callbacks.xxfi_negotiate = onNegotiate;
  return callbacks;
}

/// Waits until \p isDone, for \p longest at most. libmilter has no end to wait for.
/// \return whether it is.
template <class Condition>
bool waitUntil(Condition isDone, std::chrono::milliseconds longest) {
  const auto end = std::chrono::steady_clock::now() + longest;
  while (!isDone() && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return isDone();
}

}  // namespace

Server::Server(const Gateway& gateway, std::function<void()> wakeSender)
    : gateway_(gateway), wakeSender_(std::move(wakeSender)), progress_(kProgressInterval) {
  theServer = this;
}

Server::~Server() { theServer = nullptr; }

std::string Server::open() {
  const MilterSettings& settings = gateway_.settings;
  const std::string path = settings.socketPath();
  std::string socket = settings.socket;
  if (smfi_setconn(socket.data()) != MI_SUCCESS || smfi_register(description()) != MI_SUCCESS ||
      smfi_setbacklog(kBacklog) != MI_SUCCESS) {
    return socket + ": not accepted as a socket";
  }
  // libmilter removes what lies there, also from under whoever serves on it.
  if (isServed(path)) {
    return path +
           ": somebody serves there already (end that first, or write another socket in "
           "section milter)";
  }
  // Nobody is to connect before the socket has its own mode.
  const mode_t before = ::umask(0177);
  const int opened = smfi_opensocket(true);
  const int why = errno;
  ::umask(before);
  if (opened != MI_SUCCESS) {
    return socket + ": cannot be opened: " + std::strerror(why) +
           " (does its folder exist, and may this user write there?)";
  }
  if (!path.empty() && ::chmod(path.c_str(), settings.socketMode) != 0) {
    return path + ": " + std::strerror(errno);
  }
  return {};
}

std::string Server::serve() {
  const bool proper = smfi_main() == MI_SUCCESS;
  return proper ? std::string() : gateway_.settings.socket + ": serving ended with a failure";
}

bool Server::finish(const std::function<bool()>& isOtherAtWork,
                    const std::function<void()>& breakOff) {
  const auto isDone = [&] { return messagesAtWork_ == 0 && !isOtherAtWork(); };
  const int patience = gateway_.settings.deadlineSeconds;
  if (!waitUntil(isDone, std::chrono::seconds(patience))) {
    gateway_.log.write(1,
                       "stopping, and at work for %d seconds: what is under way with mail servers "
                       "is broken off; its senders, and the spool, try again",
                       patience);
    breakOff();
    if (!waitUntil(isDone, kBreakingOff)) return false;
  }
  // libmilter writes an answer behind the callback, and has nothing to wait for. One that does not
  // get out makes the sender try again.
  waitUntil([this] { return connections_ == 0; }, kLastAnswers);
  if (gateway_.answers != nullptr) gateway_.answers->endAll();
  return true;
}

}  // namespace gateway::milter
