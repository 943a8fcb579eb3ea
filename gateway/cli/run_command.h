// `kavi run`
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "gateway/cli/policy_setup.h"
#include "gateway/cli/terminal.h"

namespace gateway::cli {

struct RunOptions {
  PolicyOptions policy;
  std::string config;  ///< settings file; empty for none
  std::vector<std::string> inputs;
  std::string out;  ///< empty: nothing is written
  std::optional<std::string> from;
  std::vector<std::string> recipients;
  unsigned int jobs = 0;  ///< 0: as many as there are processors
  bool json = false;
  bool verbose = false;
  bool diff = false;        ///< shows the difference of messages that changed
  bool trusted = false;     ///< reprocessing fields of the inputs count as if they were sealed
  bool reinjected = false;  ///< they count with a seal that holds
  bool deliver = false;     ///< acts for real; needs `out`
  std::string state;        ///< the state folder, instead of that of the settings
  bool quiet = false;       ///< leaves out messages that nothing happened to
  Colour colour = Colour::Auto;
};

/// \return the exit status: 0 all done, 1 an action failed or a message could not be read or
///   written, 2 usage or policy error, 3 every message was done, but not all of the spool was sent.
int runCommand(const RunOptions& options);

}  // namespace gateway::cli
