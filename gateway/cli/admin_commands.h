// The commands that look at actions, settings strings and tokens.
#pragma once

#include <string>

namespace gateway::cli {

/// `kavi actions`
int actionsCommand(bool json);

/// `kavi tokens`
int tokensCommand(bool json);

/// `kavi setting encode ACTION [VALUE]`: the settings string of a policy's value.
int settingEncodeCommand(const std::string& action, const std::string* value, bool json);

/// `kavi setting decode ACTION SETTING`: the value that a policy would show.
int settingDecodeCommand(const std::string& action, const std::string& setting, bool json);

}  // namespace gateway::cli
