#include "host/trap/trap_session.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <cstring>
#include <limits>
#include <memory>
#include <mutex>

#include "host/trap/trap_text.h"

namespace host::trap {

namespace {

using Oid = std::vector<unsigned long>;
static_assert(sizeof(oid) == sizeof(unsigned long));

const Oid kSysUpTime{1, 3, 6, 1, 2, 1, 1, 3, 0};
const Oid kSnmpTrapOid{1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
constexpr char kDefaultCommunity[] = "public";

struct CloseSession {
  void operator()(void* session) const { snmp_sess_close(session); }
};
struct FreePdu {
  void operator()(netsnmp_pdu* pdu) const { snmp_free_pdu(pdu); }
};
using SessionHandle = std::unique_ptr<void, CloseSession>;
using Pdu = std::unique_ptr<netsnmp_pdu, FreePdu>;

// The session API is for one thread at a time: request numbers and the table of transports are the
// process's. A datagram is sent without waiting, so that the lock is a short one.
std::mutex& sessions() {
  static std::mutex mutex;
  return mutex;
}

// Neither MIB files nor settings of the machine's are read: OIDs come in numbers.
void startLibrary() {
  static std::once_flag started;
  std::call_once(started, [] {
    netsnmp_session unused;
    snmp_sess_init(&unused);
    netsnmp_register_loghandler(NETSNMP_LOGHANDLER_NONE, LOG_DEBUG);
  });
}

bool addVariable(netsnmp_pdu& pdu, const Oid& name, u_char type, const void* value,
                 std::size_t size) {
  return snmp_pdu_add_variable(&pdu, name.data(), name.size(), type, value, size) != nullptr;
}

bool fillV1(netsnmp_pdu& pdu, const Oid& enterprise, unsigned long type) {
  auto* const copy = static_cast<oid*>(std::malloc(enterprise.size() * sizeof(oid)));
  if (copy == nullptr) return false;
  std::memcpy(copy, enterprise.data(), enterprise.size() * sizeof(oid));
  pdu.enterprise = copy;  // freed with the rest
  pdu.enterprise_length = enterprise.size();
  const in_addr_t own = get_myaddr();
  std::memcpy(pdu.agent_addr, &own, sizeof pdu.agent_addr);
  pdu.trap_type = SNMP_TRAP_ENTERPRISESPECIFIC;
  pdu.specific_type = static_cast<long>(type);
  pdu.time = static_cast<u_long>(get_uptime());
  return true;
}

bool fillV2(netsnmp_pdu& pdu, const Oid& enterprise, unsigned long type) {
  const long upTime = get_uptime();
  Oid trapOid = enterprise;
  trapOid.push_back(0);
  trapOid.push_back(type);
  return addVariable(pdu, kSysUpTime, ASN_TIMETICKS, &upTime, sizeof upTime) &&
         addVariable(pdu, kSnmpTrapOid, ASN_OBJECT_ID, trapOid.data(),
                     trapOid.size() * sizeof(oid));
}

Pdu makePdu(const Oid& enterprise, const KaviTrapInfo& trap) {
  const bool isV2 = trap.version() == SNMPTrapVersion::V2c;
  Pdu pdu(snmp_pdu_create(isV2 ? SNMP_MSG_TRAP2 : SNMP_MSG_TRAP));
  if (pdu == nullptr) return nullptr;
  const bool filled = isV2 ? fillV2(*pdu, enterprise, trap.specificType())
                           : fillV1(*pdu, enterprise, trap.specificType());
  Oid textOid = enterprise;
  textOid.push_back(1);
  const std::string text = fittingTrapText(trap.value());
  if (!filled || !addVariable(*pdu, textOid, ASN_OCTET_STR, text.data(), text.size())) {
    return nullptr;
  }
  return pdu;
}

SessionHandle open(std::string peer, const KaviTrapInfo& trap) {
  std::string community = trap.community().empty() ? kDefaultCommunity : trap.community();
  netsnmp_session wanted;
  snmp_sess_init(&wanted);
  wanted.version = trap.version() == SNMPTrapVersion::V2c ? SNMP_VERSION_2c : SNMP_VERSION_1;
  wanted.peername = peer.data();  // copied, as the community is
  wanted.community = reinterpret_cast<u_char*>(community.data());
  wanted.community_len = community.size();
  wanted.retries = 0;
  return SessionHandle(snmp_sess_open(&wanted));
}

// An SNMPv1 specific trap is an INTEGER of 32 bits with a sign, an arc of an OID has none.
bool typeFits(const KaviTrapInfo& trap) {
  const unsigned long largest = trap.version() == SNMPTrapVersion::V2c
                                    ? std::numeric_limits<std::uint32_t>::max()
                                    : std::numeric_limits<std::int32_t>::max();
  return trap.specificType() <= largest;
}

}  // namespace

TrapError sendTrapTo(const std::string& peer, const Oid& enterprise, const KaviTrapInfo& trap) {
  if (!typeFits(trap)) return TrapError::TypeOutOfRange;
  const std::lock_guard lock(sessions());
  startLibrary();
  const SessionHandle session = open(peer, trap);
  if (session == nullptr) return TrapError::CannotOpen;
  Pdu pdu = makePdu(enterprise, trap);
  if (pdu == nullptr) return TrapError::Internal;
  if (snmp_sess_send(session.get(), pdu.get()) == 0) return TrapError::CannotSend;
  static_cast<void>(pdu.release());  // sent, and freed by the session
  return TrapError::None;
}

}  // namespace host::trap
