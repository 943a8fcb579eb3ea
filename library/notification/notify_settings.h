// The settings of notifications.
#pragma once

#include <string>

namespace Kavi {
class GlobalSetting;
}

namespace library {

// Written by readNotifySettings only; any thread may read them afterwards.
extern bool g_ignore_snmp_error;          ///< a trap that cannot be sent is no failure
extern std::string g_snmp_server_ip;      ///< where traps go; empty: none is sent
extern std::string g_snmp_community_str;  ///< empty: "public"
extern std::string g_snmp_version;        ///< "snmpv2c"; anything else is SNMPv1
extern std::string g_mail_from;           ///< read and kept; the records name the sender
extern bool g_skip_scan;                  ///< mails that carry the scanned message are not scanned
extern bool g_hide_recipients;            ///< "To" names a placeholder, not who the mail was for
extern bool g_get_sender_from_MIME;       ///< the sender is who "From" names, not the envelope
extern unsigned int g_scanner_id;         ///< stands at the front of message ids
extern bool g_add_msg_id;                 ///< mails get a "Message-ID" of this product

/// Reads every setting anew; one that is missing gets its default.
void readNotifySettings(Kavi::GlobalSetting& settings);

/// Whether \p address holds one of the words that stand for the ends of mail fetched by POP3. Null
/// holds none.
bool _is_pop3_email(const char* address);

}  // namespace library
