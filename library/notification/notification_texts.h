// What a notification says: the templates of its record with the message's values in them.
#pragma once

#include <string>

#include "library/platform/scan_token.h"
#include "library/platform/token_map.h"

class OvMsgMailMessage;
class uiNotifyArea;

namespace library {

struct NotificationTexts {
  std::string subject;  ///< UTF-8
  std::string trap;     ///< UTF-8; empty when the record asks for no trap
  std::string body;     ///< bytes in `charset`
  std::string charset;
};

/// Replaces the tokens of \p record's templates and brings the body into the library's default
/// destination charset, or leaves it in UTF-8 when that charset cannot carry it.
/// \param msg  the message that the tokens tell of; null leaves the templates as they stand.
/// \return false, logged, when a template could not be filled in.
bool makeNotificationTexts(const uiNotifyArea& record, Kavi::TokenMap<Kavi::ScanToken>& tokens,
                           const OvMsgMailMessage* msg, NotificationTexts& texts);

/// Whether \p text holds a byte that is not ASCII.
bool holdsEightBit(const std::string& text);

}  // namespace library
