// Where the entities of a message live.
#pragma once

#include <cstddef>
#include <vector>

#include "host/message/entity.h"

namespace host::message {

/// Entities at addresses that never move and are never used twice while the arena lives.
class EntityArena {
 public:
  EntityArena() = default;
  ~EntityArena();
  EntityArena(const EntityArena&) = delete;
  EntityArena& operator=(const EntityArena&) = delete;

  Entity& make(Message& message);
  /// Whether \p address is that of an entity of this arena. Never reads through it; the cost grows
  /// with the logarithm of the number of entities.
  bool owns(const void* address) const;
  std::size_t size() const { return size_; }
  /// Calls \p function with every entity, in the order in which they were made.
  template <class Function>
  void forEach(Function function) {
    for (const Chunk& chunk : chunks_) {
      for (std::size_t i = 0; i < chunk.used; ++i) function(chunk.first[i]);
    }
  }

 private:
  struct Chunk {
    Entity* first;
    std::size_t used;
    std::size_t capacity;
  };
  std::vector<Chunk> chunks_;
  std::size_t size_ = 0;
};

}  // namespace host::message
