#include "host/message/entity_arena.h"

#include <cstdint>
#include <memory>
#include <new>

namespace host::message {

EntityArena::~EntityArena() {
  for (const Chunk& chunk : chunks_) {
    std::destroy_n(chunk.first, chunk.used);
    ::operator delete(static_cast<void*>(chunk.first));
  }
}

Entity& EntityArena::make(Message& message) {
  if (chunks_.empty() || chunks_.back().used == chunks_.back().capacity) {
    const std::size_t capacity = chunks_.empty() ? 4 : chunks_.back().capacity * 2;
    chunks_.reserve(chunks_.size() + 1);
    chunks_.push_back(
        {static_cast<Entity*>(::operator new(capacity * sizeof(Entity))), 0, capacity});
  }
  Chunk& chunk = chunks_.back();
  auto* entity = ::new (static_cast<void*>(chunk.first + chunk.used)) Entity(message);
  ++chunk.used;
  ++size_;
  return *entity;
}

bool EntityArena::owns(const void* address) const {
  const auto place = reinterpret_cast<std::uintptr_t>(address);
  for (const Chunk& chunk : chunks_) {
    const auto first = reinterpret_cast<std::uintptr_t>(chunk.first);
    if (place >= first && place < first + chunk.used * sizeof(Entity)) {
      return (place - first) % sizeof(Entity) == 0;
    }
  }
  return false;
}

}  // namespace host::message
