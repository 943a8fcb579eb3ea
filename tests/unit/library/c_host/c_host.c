/* A host written in C: finds the library's start-up function by its plain name and calls it. The
 * platform is what this program is linked with.
 *
 *   c_host LIBRARY [SETTINGS.ini]
 */
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include "host/core/c_api.h"

/* References are pointers at this level. */
typedef int (*InitActionLibFunction)(struct kavi_settings* settings, struct kavi_log* log);

/* Level of the log: failures and notices. */
static const int kLogLevel = 2;

static int start(void* library, const char* iniPath) {
  char error[256];
  int answer = 0;
  struct kavi_settings* settings = kavi_settings_open(iniPath, error, sizeof error);
  struct kavi_log* log = kavi_log_open(kLogLevel);
  /* ISO C has no conversion from an object pointer to a function pointer. */
  void* symbol = dlsym(library, "InitActionLib");
  InitActionLibFunction init = NULL;
  memcpy(&init, &symbol, sizeof init);

  if (settings == NULL) {
    fprintf(stderr, "settings: %s\n", error);
  } else if (log == NULL) {
    fputs("log: out of memory\n", stderr);
  } else if (init == NULL) {
    fprintf(stderr, "%s\n", dlerror());
  } else {
    answer = init(settings, log);
    printf("InitActionLib answered %d\n", answer);
  }
  kavi_log_close(log);
  kavi_settings_close(settings);
  return answer == 1 ? 0 : 1;
}

int main(int argc, char** argv) {
  void* library;
  int result;
  if (argc < 2 || argc > 3) {
    fputs("usage: c_host LIBRARY [SETTINGS.ini]\n", stderr);
    return 2;
  }
  /* Every symbol at once: a platform with an operation missing fails here. */
  library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (library == NULL) {
    fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  result = start(library, argc == 3 ? argv[2] : NULL);
  if (dlclose(library) != 0) {
    fprintf(stderr, "%s\n", dlerror());
    result = 1;
  }
  return result;
}
