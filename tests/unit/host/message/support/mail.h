// Short ways to a message.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "host/message/message.h"
#include "library/platform/ov_msg_functions.h"

namespace message_test {

inline std::unique_ptr<host::message::Message> mail(std::string_view bytes) {
  return host::message::Message::parse(host::message::Buffer::copyOf(bytes));
}

/// A text, a picture and a mail.
inline constexpr char kParts[] =
    "From: a@example.com\nMIME-Version: 1.0\n"
    "Content-Type: multipart/mixed; boundary=\"b\"\n\npreamble\n"
    "--b\nContent-Type: text/plain\n\ntext\n"
    "--b\nContent-Type: image/png; name=p.png\nContent-Disposition: attachment\n\nPNG\n"
    "--b\nContent-Type: message/rfc822\n\nSubject: inner\n\ninner text\n"
    "--b--\nepilogue\n";

/// The entity at a path such as "1.2"; null when there is none.
inline host::message::Entity* at(host::message::Message& message, std::string_view path) {
  for (auto* entity = message.firstEntity(); entity != nullptr; entity = entity->nextEntity()) {
    if (entity->path() == path) return entity;
  }
  return nullptr;
}

/// A resource that releases itself.
class Resource {
 public:
  explicit Resource(std::string_view bytes)
      : locator_(OvMsg_CreateResourceLocator(bytes.data(), kOvMsgMemoryResource,
                                             static_cast<unsigned>(bytes.size()),
                                             static_cast<unsigned>(bytes.size()), 1)) {}
  ~Resource() { OvMsg_DeleteResourceLocator(locator_); }
  Resource(const Resource&) = delete;
  Resource& operator=(const Resource&) = delete;
  operator const OvMsgResourceLocator*() const { return locator_; }

 private:
  OvMsgResourceLocator* locator_;
};

}  // namespace message_test
