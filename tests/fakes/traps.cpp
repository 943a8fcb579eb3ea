#include "tests/fakes/traps.h"

#include "library/platform/trap.h"
#include "tests/fakes/fault_plan.h"
#include "tests/fakes/handles.h"

namespace fakes {

Traps& Traps::instance() {
  static Traps traps;
  return traps;
}

void Traps::clear() {
  std::vector<std::string>().swap(sent);  // gives the memory back, too: sweeps count what is left
  answer = 0;
  messagesAtSending = 0;
}

}  // namespace fakes

KaviTrapInfo::KaviTrapInfo(const std::string& server, SNMPTrapVersion version,
                           const std::string& oid, const std::string& community,
                           unsigned long specificType)
    : server_(server),
      version_(version),
      oid_(oid),
      community_(community),
      specificType_(specificType) {
  fakes::platformCallFails();  // as the next one: has no failure result, may only throw
  ++fakes::Traps::instance().alive;
}

KaviTrapInfo::~KaviTrapInfo() { --fakes::Traps::instance().alive; }

void KaviTrapInfo::setTrapVarValue(const std::string& value) {
  fakes::platformCallFails();
  value_ = value;
}

std::string KaviTrapInfo::getDumpStr() const {
  fakes::platformCallFails();
  return "to " + server_;
}

int SendKaviTrap(const KaviTrapInfo& trap) {
  if (fakes::platformCallFails()) {
    return 72;
  }
  const fakes::Unswept unswept;
  fakes::Traps::instance().messagesAtSending = fakes::Handles::instance().messages;
  fakes::Traps::instance().sent.push_back(
      trap.server() + " " + std::to_string(static_cast<int>(trap.version())) + " " + trap.oid() +
      " '" + trap.community() + "' " + std::to_string(trap.specificType()) + " '" + trap.value() +
      "'");
  return fakes::Traps::instance().answer;
}
