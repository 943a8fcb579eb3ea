#include "host/message/ascii.h"
#include "host/message/facts.h"
#include "host/message/guard.h"
#include "host/message/message.h"
#include "host/message/tree_editor.h"
#include "host/message/walk.h"
#include "library/platform/msgu.h"

namespace msgu {

using host::message::Entity;
using host::message::guarded;
using host::message::Message;
using host::message::TreeEditor;

bool findContentType(OvMsgMailMessage* msg, const char* type, std::list<OvMsgEntity*>& found,
                     bool nested) {
  return guarded(false, [&] {
    auto* message = dynamic_cast<Message*>(msg);
    if (message == nullptr || type == nullptr || *type == '\0') return false;
    const std::string wanted = host::message::lowered(std::string_view(type));
    const bool isWhole = wanted.find('/') != std::string::npos;
    for (const Entity* entity = message->firstEntity(); entity != nullptr;
         entity = nested ? entity->next() : host::message::nextOwnEntity(*entity)) {
      const std::string present = entity->contentType();
      const std::string_view compared =
          isWhole ? std::string_view(present)
                  : std::string_view(present).substr(present.find('/') + 1);
      if (compared == wanted) found.push_back(const_cast<Entity*>(entity));
    }
    return true;
  });
}

bool existEntity(OvMsgMailMessage* msg, OvMsgEntity* entity) {
  return guarded(false, [&] {
    const auto* message = dynamic_cast<const Message*>(msg);
    return message != nullptr && message->contains(entity);
  });
}

bool isBody(OvMsgMailMessage* msg, OvMsgEntity* entity) {
  return guarded(false, [&] {
    const auto* message = dynamic_cast<const Message*>(msg);
    return message != nullptr && message->contains(entity) &&
           host::message::isBodyText(*static_cast<const Entity*>(entity));
  });
}

bool removeRootEntity(OvMsgEntity* entity, const char* charset) {
  return guarded(false, [&] {
    auto* root = dynamic_cast<Entity*>(entity);
    if (root == nullptr || root->isSubordinate()) return false;
    return TreeEditor(root->message()).setContent(*root, {{}, "text/plain", charset, "7bit"}) ==
           OVMSGERR::Ok;
  });
}

bool removeEntityAndDummyParent(OvMsgEntity* entity, const char* /*reserved*/) {
  return guarded(false, [&] {
    auto* part = dynamic_cast<Entity*>(entity);
    return part != nullptr && TreeEditor(part->message()).remove(*part) == OVMSGERR::Ok;
  });
}

}  // namespace msgu
