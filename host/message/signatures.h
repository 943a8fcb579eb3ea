// Whether a message carries a signature that a change of its body would break.
#pragma once

namespace host::message {

class Message;

/// S/MIME (RFC 8551 section 3.5), in any part outside nested messages.
bool hasSmimeSignature(const Message& message);
/// OpenPGP: RFC 3156, or a clear-signed text (RFC 4880 section 7), outside nested messages.
bool hasPgpSignature(const Message& message);

}  // namespace host::message
