// Doubts about a policy that is free of errors.
#pragma once

#include "gateway/policy/diagnostics.h"
#include "gateway/policy/rows.h"

namespace gateway::policy {

/// Adds a warning to \p diagnostics for everything in \p rows that probably does not do what was
/// meant.
void lintPolicy(const PolicyRows& rows, const SourceLines& lines, Diagnostics& diagnostics);

}  // namespace gateway::policy
