// Content that is handed to the message library.
#pragma once

#include <memory>
#include <string_view>

#include "library/platform/ov_msg_functions.h"

namespace library {

struct ResourceDeleter {
  void operator()(OvMsgResourceLocator* locator) const noexcept;
};

/// An in-memory resource, released with its scope.
using Resource = std::unique_ptr<OvMsgResourceLocator, ResourceDeleter>;

/// A resource over a copy of \p content. \return null when the message library cannot make one.
Resource makeResource(std::string_view content);

}  // namespace library
