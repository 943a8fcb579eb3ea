// The way of a trap, from the settings' texts to the wire.
#include "host/core/guard.h"
#include "host/trap/oid.h"
#include "host/trap/trap_error.h"
#include "host/trap/trap_recorder.h"
#include "host/trap/trap_server.h"
#include "host/trap/trap_session.h"
#include "library/platform/trap.h"

namespace host::trap {

namespace {

TrapError send(const KaviTrapInfo& trap) {
  if (TrapRecorder* const recorder = TrapRecorder::current()) {
    recorder->record(trap);
    return TrapError::None;
  }
  if (trap.server().empty()) return TrapError::NoServer;
  const auto server = parseTrapServer(trap.server());
  if (!server) return TrapError::MalformedServer;
  const auto enterprise = parseOid(trap.oid());
  if (!enterprise) return TrapError::MalformedOid;
  std::string peer;
  const TrapError error = resolveTrapServer(*server, lookUpHost, kLookupLimit, peer);
  return error == TrapError::None ? sendTrapTo(peer, *enterprise, trap) : error;
}

}  // namespace

}  // namespace host::trap

int SendKaviTrap(const KaviTrapInfo& trap) {
  using host::trap::TrapError;
  return static_cast<int>(
      host::core::guarded(TrapError::Internal, [&] { return host::trap::send(trap); }));
}
