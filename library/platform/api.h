// Visibility of the public API: everything else in the shared objects is hidden.
#pragma once

#define KAVI_API __attribute__((visibility("default")))
