// Where the library's log lines go.
#pragma once

#include "library/platform/api.h"

namespace Kavi {

/// The process log. Levels: 1 failures, 2 notices, 3 detail. May be used from any thread.
class KAVI_API LogMsg {
 public:
  virtual ~LogMsg() = default;

  /// The most verbose level that is written; 0 writes nothing.
  virtual int getLevel() const = 0;

  /// Writes one line. \p format and what follows are those of printf; \p level is the line's own.
  virtual void write(int level, const char* format, ...) __attribute__((format(printf, 3, 4))) = 0;
};

}  // namespace Kavi
