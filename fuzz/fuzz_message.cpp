// The message library on any bytes: reading, walking, editing and writing.
#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>

#include "fuzz/check.h"
#include "host/message/facts.h"
#include "host/message/message.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_functions.h"
#include "library/platform/ov_msg_header.h"

namespace {

using fuzz::require;

using host::message::Buffer;
using host::message::Entity;
using host::message::Message;

void lookAt(Entity& entity) {
  static_cast<void>(entity.contentType());
  static_cast<void>(entity.path());
  static_cast<void>(entity.decodedSize());
  static_cast<void>(entity.contentTypeParameter("charset"));
  if (OvMsgFileName* name = entity.fileName()) static_cast<void>(name->name());
  for (int i = 0; i < entity.headerCount(); ++i) {
    OvMsgHeader* header = entity.headerAt(i);
    int words = 0;
    static_cast<void>(header->name());
    static_cast<void>(header->value());
    static_cast<void>(header->decodedValue(words));
    static_cast<void>(header->charset());
    static_cast<void>(header->address());
    require(header->rawValue() != nullptr, "a field without bytes");
  }
}

void lookAtAll(Message& message) {
  for (Entity* entity = message.firstEntity(); entity != nullptr; entity = entity->nextEntity()) {
    lookAt(*entity);
    require(message.contains(entity), "an entity that is not in its tree");
  }
  static_cast<void>(message.isSmimeSigned());
  static_cast<void>(message.isPgpSigned());
  static_cast<void>(msgu::getCharset(&message));
  std::string text;
  std::list<OvMsgEntity*> found;
  static_cast<void>(msgu::getSubject(&message, "shift_jis", nullptr, text));
  static_cast<void>(msgu::getHeaders(&message, text));
  static_cast<void>(msgu::findContentType(&message, "ms-tnef", found, true));
}

void editHeaders(Message& message, const std::string& value) {
  Entity* root = message.firstEntity();
  for (Entity* entity = root; entity != nullptr; entity = entity->nextEntity()) {
    const int count = entity->headerCount();
    for (int i = 0; i < count && i < 4; ++i) {
      OvMsgHeader* header = entity->headerAt(i);
      const std::string before = header->rawValue();
      if (header->name() == nullptr) continue;
      const std::string received = header->value();
      if (header->setValue(value.c_str(), nullptr) == 0) {
        header->setValue(received.c_str(), nullptr);
        require(before == header->rawValue(), "a field set back is not as received");
      }
      header->setValue(value.c_str(), "utf-8");
      header->setParameter("name", value.c_str());
    }
    entity->addHeader(-1, "X-Fuzz", value.c_str(), "iso-2022-jp");
    require(entity->headerCount() >= count, "a field got lost");
  }
}

void editParts(Message& message, std::string_view choices) {
  OvMsgResourceLocator* text = OvMsg_CreateResourceLocator("a \xE2\x82\xAC\n--b\n", 1, 9, 9, 1);
  for (const char choice : choices.substr(0, 12)) {
    Entity* entity = message.firstEntity();
    for (int step = (choice >> 3) & 15; step > 0 && entity != nullptr; --step) {
      Entity* next = entity->nextEntity();
      if (next == nullptr) break;
      entity = next;
    }
    if (entity == nullptr) break;
    switch (choice & 7) {
      case 0:
      case 1:
        msgu::removeEntityAndDummyParent(entity, "");
        break;
      case 2:
        entity->setContent(text, "text/plain", "utf-8", "quoted-printable");
        break;
      case 3:
        entity->insertTextBody(text, "text/plain", nullptr, "8bit");
        break;
      case 4:
        if (message.entityCount() < 100) entity->insertChild(message.firstEntity(), choice >> 6);
        break;
      case 5:
        if (message.entityCount() < 100) entity->attachMessage(&message.received(), -1);
        break;
      case 6:
        msgu::removeRootEntity(message.firstEntity(), "utf-8");
        break;
      default:
        entity->addHeader(0, "X-Part", "1", nullptr);
    }
    require(message.toString().size() == message.renderedSize(), "two renderings differ");
  }
  OvMsg_DeleteResourceLocator(text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  auto message = Message::parse(Buffer::copyOf(bytes));
  require(message->toString() == bytes, "the message does not render as it came");
  lookAtAll(*message);
  require(message->toString() == bytes, "looking changed the message");
  require(!message->changed(), "looking marked the message as changed");

  Entity* root = message->firstEntity();
  if (root == nullptr) return 0;
  const std::size_t cut = size / 2;
  const bool had = root->header("X-Fuzz-Flag") != nullptr;
  require(msgu::setHeader(root, "X-Fuzz-Flag", "yes", nullptr), "no field could be set");
  const auto again = Message::parse(Buffer::adopt(message->toString()));
  std::string value;
  require(msgu::getHeader(again->firstEntity(), "X-Fuzz-Flag", value) && value == "yes",
          "the field that was set is not read back");
  require(had || again->entityCount() == message->entityCount(), "a field changed the structure");
  if (!had) {
    root->removeHeader("X-Fuzz-Flag");
    require(message->toString() == bytes, "taking the field out did not restore the message");
  }
  editHeaders(*message, bytes.substr(cut, 300));
  lookAtAll(*message);
  editParts(*message, bytes.substr(cut));
  lookAtAll(*message);
  require(message->received().toString() == bytes, "the received message changed");
  const auto last = Message::parse(Buffer::adopt(message->toString()));
  lookAtAll(*last);
  return 0;
}
