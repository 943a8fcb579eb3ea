// What the library creates from the message library and has to release: counted, refused on demand.
#pragma once

#include <functional>
#include <string>

namespace fakes {

class Message;

/// One for the test program. Each test starts by clearing it.
class Handles {
 public:
  static Handles& instance();

  /// Forgets what a test has set. Does not release anything.
  void clear();

  int messages = 0;  ///< made and not yet released
  int sessions = 0;
  int texts = 0;

  bool refusesMessages = false;
  bool makesRootlessMessages = false;
  bool refusesTexts = false;
  std::function<void(Message&)> prepare;  ///< sets up each message that is made
  /// The last message that was made without being released, or null: for what is left on purpose.
  Message* last = nullptr;
};

}  // namespace fakes
