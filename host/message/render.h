// Writes a tree as bytes.
#pragma once

#include <string_view>

#include "host/message/entity.h"
#include "library/platform/ov_msg_mail_message.h"

namespace host::message {

/// Walks a tree and hands its slices to a sink. Neighbouring slices of one buffer become one
/// write, so that an unchanged message is written at once and bodies are never copied.
class Renderer {
 public:
  explicit Renderer(OvMsgSink& sink) : sink_(sink) {}

  /// Writes \p top with everything in it. \param withLead  with what stands in front of it.
  /// \return false when the sink refused bytes.
  bool write(const Entity& top, bool withLead);

 private:
  void writeHeader(const Entity& entity);
  void put(std::string_view slice);
  void startLine(const Entity& entity);
  bool isAtLineBegin() const;
  void flush();

  OvMsgSink& sink_;
  std::string_view pending_;
  char last_ = '\n';
  bool failed_ = false;
};

}  // namespace host::message
