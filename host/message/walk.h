// Walking a tree.
#pragma once

#include "host/message/entity.h"

namespace host::message {

/// The next entity in document order that is not inside \p entity.
inline const Entity* nextOutside(const Entity& entity) {
  const Entity* at = &entity;
  while (at != nullptr && at->nextSibling() == nullptr) at = at->parent();
  return at == nullptr ? nullptr : at->nextSibling();
}

/// The next entity in document order that is not inside a nested message.
inline const Entity* nextOwnEntity(const Entity& entity) {
  return entity.kind() == OvMsgEntityKind::Message ? nextOutside(entity) : entity.next();
}

}  // namespace host::message
