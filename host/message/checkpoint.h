// A message as it stood at one moment.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "host/message/entity_state.h"
#include "host/message/envelope.h"
#include "host/message/header_block.h"
#include "library/platform/api.h"

namespace host::message {

class Message;

/// Keeps what edits can change of a message: its tree, its header fields and its envelope, but not
/// the bytes, which never change. Takes time and memory linear in the number of entities and of the
/// fields that somebody has looked at.
class KAVI_API Checkpoint {
 public:
  /// \param message  outlives the checkpoint \throw std::bad_alloc
  explicit Checkpoint(Message& message);
  ~Checkpoint();
  Checkpoint(const Checkpoint&) = delete;
  Checkpoint& operator=(const Checkpoint&) = delete;

  /// Brings the message back, byte for byte. Once only; cannot fail. Entities have the addresses
  /// that they had; those that came since are gone from the tree, and addresses of header fields
  /// are no longer good. The list of changes keeps what was done meanwhile.
  void restore() noexcept;

 private:
  struct Saved {
    EntityState state;
    std::optional<HeaderBlock::Fields> fields;  ///< nothing: nobody has looked at them
  };

  Message& message_;
  Entity* root_;
  std::optional<Envelope> envelope_;
  std::vector<Saved> entities_;  ///< in the order in which they were made
};

}  // namespace host::message
