// Telling the mail system what became of a message.
#pragma once

#include <libmilter/mfapi.h>

#include "gateway/milter/answer.h"
#include "gateway/milter/change_set.h"

namespace gateway::milter {

/// Sends the changes, in their order.
/// \param message  as it stands; read when its body goes, too
/// \return false when the mail system did not take one; then the message must not go on.
bool tellChanges(SMFICTX* context, const ChangeSet& changes, const host::message::Message& message);

/// What libmilter's end of a message is to return. A text that libmilter does not take leaves the
/// mail system's own words.
sfsistat tellAnswer(SMFICTX* context, const Answer& answer);

}  // namespace gateway::milter
