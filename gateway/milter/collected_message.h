// One message as it arrives through the milter protocol.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/milter/byte_store.h"
#include "host/message/buffer.h"
#include "host/message/envelope.h"

namespace gateway::milter {

/// What a message may come to. One beyond a bound gets the verdict that the settings name.
struct MessageLimits {
  std::size_t bytes = std::size_t{64} << 20;
  std::size_t headerFields = 1000;
  std::size_t headerBytes = std::size_t{1} << 20;
  std::size_t recipients = 1000;
  std::size_t parts = 10'000;
  std::size_t depth = 100;
};

/// An address of the envelope as it was given, with its ESMTP arguments.
struct EnvelopeAddress {
  std::string text;  ///< without its brackets
  std::vector<std::string> arguments;
};

/// Gathers envelope, header and body of one message. Nothing throws but for lack of memory. What
/// lies beyond a limit is not kept; `excess` says so. One thread at a time.
class CollectedMessage {
 public:
  /// \param folder       for the body of a large message
  /// \param memoryBytes  the most of header and body that is kept in memory
  CollectedMessage(const MessageLimits& limits, std::string folder, std::size_t memoryBytes)
      : limits_(limits), bytes_(std::move(folder), memoryBytes) {}

  /// \param address  as it was given, with or without brackets
  void setSender(std::string_view address, std::vector<std::string> arguments);
  void addRecipient(std::string_view address, std::vector<std::string> arguments);
  /// \param value  everything behind the colon; folds are LF, or CR LF, and white space
  void addHeader(std::string_view name, std::string_view value);
  void endHeader();
  /// \param piece  with CR LF line breaks
  void addBody(std::string_view piece);

  /// Header, blank line and body as one, with CR LF line breaks in the header; they leave this
  /// object. \return null when they could not be kept; `fault` says why.
  std::shared_ptr<const host::message::Buffer> takeBytes();

  const EnvelopeAddress& sender() const { return sender_; }
  const std::vector<EnvelopeAddress>& recipients() const { return recipients_; }
  host::message::Envelope envelope() const;
  std::size_t headerFields() const { return headerFields_; }
  std::size_t size() const { return size_; }

  /// The limit that the message lies beyond, in words; empty when it keeps to all of them.
  const std::string& excess() const { return excess_; }
  /// What kept the message from being gathered: our disk, or bytes that no mail system sends.
  const std::string& fault() const { return fault_; }

 private:
  bool isBroken() const { return !fault_.empty() || !excess_.empty(); }
  void exceed(const char* what, std::size_t limit);
  void append(std::string_view bytes);

  MessageLimits limits_;
  ByteStore bytes_;
  EnvelopeAddress sender_;
  std::vector<EnvelopeAddress> recipients_;
  std::size_t headerFields_ = 0;
  std::size_t size_ = 0;
  bool headerEnded_ = false;
  std::string excess_;
  std::string fault_;
};

}  // namespace gateway::milter
