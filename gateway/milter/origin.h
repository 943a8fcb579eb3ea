// Where a message came from.
#pragma once

#include <string>

namespace gateway::milter {

/// As the mail system tells it. Texts from outside, not checked.
struct Origin {
  std::string queueId{};  ///< empty when the mail system gave none
  std::string clientName{};
  std::string clientAddress{};
  std::string helo{};
  std::string user{};      ///< the login; empty without one
  std::string listener{};  ///< the name that the listener gives itself
};

}  // namespace gateway::milter
