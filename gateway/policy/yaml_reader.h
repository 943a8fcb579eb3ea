// Reads YAML into a Document, within limits.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "gateway/policy/diagnostics.h"
#include "gateway/policy/node.h"

namespace gateway::policy {

/// What a policy text may grow to: room for 100,000 named objects and 10,000 rules, in less than a
/// gigabyte of memory. An alias counts as all that it stands for, so that a text cannot blow up by
/// naming itself again and again.
struct YamlLimits {
  std::size_t bytes = std::size_t{64} << 20;
  std::size_t values = 3'000'000;  ///< keys count, too
  std::size_t depth = 64;
  std::size_t signs = 1'000'000;  ///< in brackets, of those that mean something to YAML
};

/// Reads one YAML document (UTF-8).
/// \return null when the text is no YAML or exceeds a limit; the reason, with its line, is then
///   in \p diagnostics. A key that a map holds twice is an error too, but the rest is read.
std::unique_ptr<Document> readYaml(std::string_view text, Diagnostics& diagnostics,
                                   const YamlLimits& limits = {});

/// Reads one line of JSON, the form of stored conditions; its nodes carry no lines.
/// \return null with \p error set when \p text is no JSON or is nested too deeply.
std::unique_ptr<Document> readJson(std::string_view text, std::string& error,
                                   const YamlLimits& limits = {});

}  // namespace gateway::policy
