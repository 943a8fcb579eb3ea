// The functions that compute a token's value from the message or from the settings.
//
// All have the form of TokenValueFunction. They let exceptions of the platform through: their
// callers stand inside the library's guard.
#pragma once

#include <string>

#include "library/platform/scan_token.h"
#include "library/platform/token_map.h"

class OvMsgMailMessage;

namespace library {

/// Whether the date is written in the product's own, Japanese, locale: "yes" in the settings.
bool usesKaviLocaleForTime();

/// The subject in UTF-8; with the use-mail-charset setting, the mail's charset is the first hint.
bool fnSubject(Kavi::TokenMap<Kavi::ScanToken>& tokens, const OvMsgMailMessage& msg,
               std::string& value);
/// The mail's header as text.
bool fnHeaders(Kavi::TokenMap<Kavi::ScanToken>& tokens, const OvMsgMailMessage& msg,
               std::string& value);
/// The present local time, in the notification time format or in Japanese.
bool fnDateTime(Kavi::TokenMap<Kavi::ScanToken>& tokens, const OvMsgMailMessage& msg,
                std::string& value);
/// The actions taken, as readable text.
bool fnActions(Kavi::TokenMap<Kavi::ScanToken>& tokens, const OvMsgMailMessage& msg,
               std::string& value);
/// The same for the other list of actions.
bool fnTActions(Kavi::TokenMap<Kavi::ScanToken>& tokens, const OvMsgMailMessage& msg,
                std::string& value);
/// Where the message is filed in quarantine; empty when no quarantine area is known.
bool fnQAFilePath(Kavi::TokenMap<Kavi::ScanToken>& tokens, const OvMsgMailMessage& msg,
                  std::string& value);
/// The default destination charset.
bool fnDCharset(Kavi::TokenMap<Kavi::ScanToken>& tokens, const OvMsgMailMessage& msg,
                std::string& value);
/// The mail's own identifier.
bool fnXmailid(Kavi::TokenMap<Kavi::ScanToken>& tokens, const OvMsgMailMessage& msg,
               std::string& value);
/// The charset that the mail declares.
bool fnMCharset(Kavi::TokenMap<Kavi::ScanToken>& tokens, const OvMsgMailMessage& msg,
                std::string& value);

}  // namespace library
