// The envelope of a message that comes from a file.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/message/envelope.h"
#include "host/message/message.h"

namespace gateway::cli {

/// An envelope, and where its halves were taken from: "--from", "Return-Path", "From", "--rcpt",
/// "Delivered-To", "To, Cc"; "none" when there was nothing to take.
struct ChosenEnvelope {
  host::message::Envelope envelope;
  std::string senderSource;
  std::string recipientsSource;
};

/// The sender is \p from, else that of Return-Path, else the first of From. The recipients are
/// \p recipients, else those of the first Delivered-To, else those of all To and Cc fields, each
/// once.
ChosenEnvelope chooseEnvelope(const host::message::Message& message,
                              const std::optional<std::string>& from,
                              const std::vector<std::string>& recipients);

/// Takes the brackets off an address of the command line.
/// \return nothing when it cannot stand in an SMTP command; the empty text for the null sender.
std::optional<std::string> plainAddress(const std::string& text);

}  // namespace gateway::cli
