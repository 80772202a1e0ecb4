/* Loads the shared library given as the argument, uses it and unloads it, three times. Unloading
 * leaves nothing behind: neither the library nor descriptors. No request is made, for the first one
 * opens sockets that live until the process ends. */
#define _GNU_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

static int fail(const char* what) {
  const char* reason = dlerror();
  fprintf(stderr, "%s%s%s\n", what, reason ? ": " : "", reason ? reason : "");
  return 1;
}

static int countDescriptors(void) {
  int count = 0;
  DIR* directory = opendir("/proc/self/fd");
  while (directory && readdir(directory)) {
    ++count;
  }
  closedir(directory);
  return count;
}

/* Turns an address into that of a function, which C has no cast for. */
static void takeFunction(void* function, void* library, const char* name) {
  void* address = dlvsym(library, name, "version_1.0");
  memcpy(function, &address, sizeof(address));
}

/* A library that has asked to be told of forks must not be asked for once it is gone. */
static int canFork(void) {
  int status = -1;
  const pid_t child = fork();
  if (child == 0) {
    _exit(0);
  }
  return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

static int useLibrary(void* library) {
  void (*init)(void) = NULL;
  void (*setInstanceName)(const char*) = NULL;
  char* (*getInstanceName)(void) = NULL;
  int (*getLock)(void*, void*) = NULL;
  void* (*getEnvVarsInitLock)(void) = NULL;
  int (*releaseLock)(void*, void*) = NULL;
  takeFunction(&init, library, "DCH_api_init");
  takeFunction(&setInstanceName, library, "ZORA_SetInstanceName");
  takeFunction(&getInstanceName, library, "ZORA_GetInstanceName");
  takeFunction(&getLock, library, "ZORA_GetLock");
  takeFunction(&getEnvVarsInitLock, library, "ZORA_GetEnvVarsInitLock");
  takeFunction(&releaseLock, library, "ZORA_ReleaseLock");
  if (!init || !setInstanceName || !getInstanceName || !getLock || !getEnvVarsInitLock ||
      !releaseLock) {
    return fail("a function is missing");
  }

  init();
  setInstanceName("loaded");
  if (strcmp(getInstanceName(), "loaded") != 0) {
    return fail("the instance name is lost");
  }

  if (getLock(getEnvVarsInitLock(), NULL) != 0 || releaseLock(getEnvVarsInitLock(), NULL) != 0) {
    return fail("the lock cannot be taken");
  }
  /* A refused lock is told in the trace, which has its own life in the library. */
  if (getLock(NULL, NULL) != -1) {
    return fail("a null lock is taken");
  }
  return 0;
}

int main(int argc, char** argv) {
  if (argc != 2) {
    return fail("usage: load_unload LIBRARY");
  }

  const int descriptors = countDescriptors();
  for (int round = 0; round < 3; ++round) {
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (!library) {
      return fail("dlopen");
    }
    if (useLibrary(library) != 0) {
      return 1;
    }
    if (dlclose(library) != 0) {
      return fail("dlclose");
    }
    if (dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD)) {
      return fail("the library is still loaded");
    }
    dlerror();
    if (countDescriptors() != descriptors) {
      return fail("the library left descriptors open");
    }
    if (!canFork()) {
      return fail("a fork fails without the library");
    }
  }
  return 0;
}
