// A locale of one's own, so that the process keeps its own.
#pragma once

#include <locale.h>  // NOLINT(modernize-deprecated-headers): freelocale is POSIX's

#include <memory>
#include <type_traits>

namespace library {

struct FreeLocale {
  void operator()(locale_t handle) const noexcept { freelocale(handle); }
};

/// A handle from `newlocale`; null where the locale is not installed.
using LocaleHandle = std::unique_ptr<std::remove_pointer_t<locale_t>, FreeLocale>;

}  // namespace library
