// The trap sender of the test program: keeps what it is asked to send.
#pragma once

#include <string>
#include <vector>

namespace fakes {

/// One for the test program. Each test starts by clearing it.
class Traps {
 public:
  static Traps& instance();

  void clear();

  /// "server version oid community type 'text'" of each trap that was sent, in order.
  std::vector<std::string> sent;
  int answer = 0;             ///< what sending answers
  int alive = 0;              ///< traps made and not yet destroyed
  int messagesAtSending = 0;  ///< messages that were not yet released when the last one was sent
};

}  // namespace fakes
