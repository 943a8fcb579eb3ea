// What edits change of an entity, its header fields aside.
#pragma once

#include <cstdint>
#include <string_view>

#include "library/platform/ov_msg_entity.h"

namespace host::message {

class Entity;

/// Its place in the tree and its slices of the message's buffers. Plain values, so that a
/// Checkpoint can keep a copy and put it back.
class EntityState {
 protected:
  Entity* parent_ = nullptr;
  Entity* previousSibling_ = nullptr;
  Entity* nextSibling_ = nullptr;
  Entity* firstChild_ = nullptr;
  Entity* lastChild_ = nullptr;
  std::string_view lead_;
  std::string_view fields_;  ///< as received; the header block holds what became of them
  std::string_view body_;
  std::string_view tail_;
  std::uint32_t blankLineLength_ = 0;  ///< received bytes right behind fields_
  std::uint32_t ordinal_ = 1;
  std::uint32_t lastOrdinal_ = 0;  ///< ordinal of the child that came last
  OvMsgEntityKind kind_ = OvMsgEntityKind::Leaf;
  bool defaultIsMessage_ : 1 = false;  ///< a part of multipart/digest
  bool detached_ : 1 = false;
  bool touched_ : 1 = false;         ///< it or something inside may have changed
  bool contentChanged_ : 1 = false;  ///< other than its fields
  bool needsBlankLine_ : 1 = false;  ///< it got a body that its header must be divided from
};

}  // namespace host::message
