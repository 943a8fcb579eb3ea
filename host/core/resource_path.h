// Where the localised texts lie.
#pragma once

#include <string>

#include "library/platform/api.h"

namespace host::core {

/// Looks the folder of compiled resource bundles (root.res, ja.res, ...) up; the first of these
/// that holds a root.res:
///   1. the environment variable KAVI_RESOURCES (taken as it stands, found or not; ignored in a
///      set-user-id program),
///   2. "../share/kavi/resources" from the folder of the shared library or program that this code
///      is linked into: a build tree, or an installed prefix wherever it was moved,
///   3. "../../share/kavi/resources" from there: a prefix with a library folder for each machine
///      type,
///   4. the place that the build was configured to install to; also the answer when none is found.
std::string findResourceFolder();

/// Sets the locale that OvCachedResbundle serves ("ja", "en_US"; "" for English). Belongs at
/// start-up, before other threads look texts up: bundles opened before keep their language.
KAVI_API void setProductLocale(const std::string& locale);

}  // namespace host::core
