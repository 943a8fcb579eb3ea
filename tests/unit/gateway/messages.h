// Messages in tests.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "host/message/message.h"

namespace gateway {

inline std::unique_ptr<host::message::Message> parsed(std::string bytes) {
  return host::message::Message::parse(host::message::Buffer::adopt(std::move(bytes)));
}

/// Header fields and a one-line body; \p header ends in a line break.
inline std::unique_ptr<host::message::Message> withHeader(const std::string& header) {
  return parsed(header + "\nbody\n");
}

/// A multipart with a text, a program, a picture without a name and a nested message that holds a
/// script.
inline std::unique_ptr<host::message::Message> withAttachments() {
  return parsed(
      "From: a@example.com\n"
      "Subject: files\n"
      "Content-Type: multipart/mixed; boundary=b\n"
      "\n"
      "--b\n"
      "\n"
      "text\n"
      "--b\n"
      "Content-Type: application/octet-stream; name=\"ignored.bin\"\n"
      "Content-Disposition: attachment; filename=\"Tool.EXE\"\n"
      "\n"
      "MZ\n"
      "--b\n"
      "Content-Type: image/PNG\n"
      "\n"
      "png\n"
      "--b\n"
      "Content-Type: message/rfc822\n"
      "\n"
      "Subject: inside\n"
      "Content-Type: multipart/mixed; boundary=c\n"
      "\n"
      "--c\n"
      "Content-Type: text/plain\n"
      "Content-Disposition: attachment; filename*=utf-8''%C3%A4.js\n"
      "\n"
      "x\n"
      "--c--\n"
      "--b--\n");
}

}  // namespace gateway
