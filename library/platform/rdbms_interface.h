// One connection to the product's database.
#pragma once

#include <memory>

#include "library/platform/api.h"

namespace Kavi {

/// Created for one call, or a few, and destroyed after it; the host keeps the real connections in
/// a small pool, so that a fresh one costs little. Not shared between threads.
class KAVI_API RdbmsInterface {
 public:
  /// Takes a connection to the configured store. Never throws: `isOpen` tells.
  RdbmsInterface();
  ~RdbmsInterface();
  RdbmsInterface(const RdbmsInterface&) = delete;
  RdbmsInterface& operator=(const RdbmsInterface&) = delete;

  bool isOpen() const;

  /// The host's own side of the connection; opaque to everyone else.
  struct Impl;
  Impl* impl() const { return impl_.get(); }

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace Kavi
