// The subject of a stored message, as the index keeps it.
#pragma once

#include <string>

class OvMsgMailMessage;

namespace host::delivery {

/// In UTF-8, cut to what anybody reads; empty when there is none. Bytes that declare no charset are
/// read as UTF-8 where they are, then in the charset that the first text part declares, then as
/// ISO-8859-1.
std::string indexSubject(OvMsgMailMessage& msg);

}  // namespace host::delivery
