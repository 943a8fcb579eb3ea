/* A host in C sees the header as C. */
#include "host/core/c_api.h"

int openSettingsFromC(const char* path, char* error, size_t errorSize) {
  struct kavi_settings* settings = kavi_settings_open(path, error, errorSize);
  if (settings == NULL) return 0;
  kavi_settings_close(settings);
  return 1;
}
