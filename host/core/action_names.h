// Which action type codes there are.
#pragma once

namespace host::core {

/// Whether \p code is one of KaviAction::ActionType.
bool isAssignedActionType(int code);

}  // namespace host::core
