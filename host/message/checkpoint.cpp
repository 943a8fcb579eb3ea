#include "host/message/checkpoint.h"

#include <utility>

#include "host/message/entity_arena.h"
#include "host/message/file_name.h"
#include "host/message/message.h"

namespace host::message {

Checkpoint::Checkpoint(Message& message)
    : message_(message), root_(message.root_), envelope_(message.envelope_) {
  entities_.reserve(message.arena_->size());
  message.arena_->forEach([this](Entity& entity) {
    Saved& saved = entities_.emplace_back();
    saved.state = entity;
    if (entity.block_ != nullptr) saved.fields = entity.block_->copyOfFields();
  });
}

Checkpoint::~Checkpoint() = default;

void Checkpoint::restore() noexcept {
  std::size_t index = 0;
  message_.arena_->forEach([&](Entity& entity) {
    EntityState& state = entity;
    if (index == entities_.size()) {
      state = {};
      entity.detached_ = true;
      return;
    }
    Saved& saved = entities_[index++];
    state = saved.state;
    if (saved.fields) {
      entity.block_->fields().swap(*saved.fields);
    } else {
      // Made anew from the received bytes when somebody looks.
      entity.block_.reset();
    }
  });
  message_.root_ = root_;
  message_.envelope_.swap(envelope_);
}

}  // namespace host::message
