// Reads YAML into a Document, within limits.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "gateway/policy/diagnostics.h"
#include "gateway/policy/node.h"

namespace gateway::policy {

/// What a policy text may grow to. An alias counts as all that it stands for, so that a text
/// cannot blow up by naming itself again and again.
struct YamlLimits {
  std::size_t bytes = std::size_t{16} << 20;
  std::size_t values = 1'000'000;
  std::size_t depth = 64;
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
