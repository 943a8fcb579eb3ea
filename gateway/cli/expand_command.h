// `kavi expand`
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "gateway/cli/policy_setup.h"

namespace gateway::cli {

struct ExpandOptions {
  std::string text;
  std::string file;      ///< the message; "-" for standard input
  PolicyOptions policy;  ///< none at all: values of rules are missing
  std::string config;    ///< settings file; empty for none
  std::optional<std::string> from;
  std::vector<std::string> recipients;
  bool trusted = false;     ///< reprocessing fields of the message count without a seal
  bool reinjected = false;  ///< they count with a seal that holds
  std::string state;        ///< where its keys are, instead of what the settings say
};

/// Prints the text with its tokens replaced for the message; words that look like mistyped tokens
/// are named on standard error. \return the exit status.
int expandCommand(const ExpandOptions& options);

}  // namespace gateway::cli
