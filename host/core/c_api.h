/* Settings and log of the platform for hosts written in C. */
#ifndef HOST_CORE_C_API_H_
#define HOST_CORE_C_API_H_

#include <stddef.h>

#include "library/platform/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The address of a kavi_settings is that of a Kavi::GlobalSetting, the address of a kavi_log that
 * of a Kavi::LogMsg: InitActionLib takes them as they are. */
struct kavi_settings;
struct kavi_log;

/* Reads the settings file `iniPath`; a null path gives settings without any key.
 * error, errorSize: a buffer, or null and 0; on failure receives the reason, cut to fit and
 *   NUL-terminated, otherwise the empty string.
 * Returns the settings, to be closed with kavi_settings_close; null on failure. */
KAVI_API struct kavi_settings* kavi_settings_open(const char* iniPath, char* error,
                                                  size_t errorSize);

/* Null is accepted. Nothing may use the settings any more. */
KAVI_API void kavi_settings_close(struct kavi_settings* settings);

/* Opens a log of text lines to the standard error stream.
 * level: 1 failures, 2 and notices, 3 and detail; 0 writes nothing.
 * Returns the log, to be closed with kavi_log_close; null when there is no memory. */
KAVI_API struct kavi_log* kavi_log_open(int level);

/* Null is accepted. Nothing may use the log any more: the library keeps the one it was started
 * with, so this comes after its last call. */
KAVI_API void kavi_log_close(struct kavi_log* log);

#ifdef __cplusplus
}
#endif

#endif
