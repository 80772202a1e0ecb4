/* A C program on the shared library. It pins the declaration of every exported name: a changed one
 * does not compile. */
#include <pthread.h>
#include <stdio.h>
#include <string.h>

#include "zora/zora.h"
#include "zordchcl/zordchcl.h"

typedef ZORA_Long Long;

struct Interface {
  void (*api_init)(void);
  void (*api_destroy)(void);
  void (*shutdown)(Long);

  int (*dpRegister)(Long*, const char*);
  int (*dpOnline)(Long*, Long*, const char*, const char*, const char*);
  int (*dpFormatData)(Long*, char**, Long*, const char*, const void*, Long, char);
  int (*dpData)(Long*, Long, short, char**);
  int (*dpActionData)(Long*, Long, short, char**, short, short);
  int (*dpOffline)(Long*, Long);
  int (*dpUnregister)(Long*, const char*);
  int (*dpCancel)(Long*, Long);

  void* (*dcWaitOnDataInitialize)(const char*, const char*);
  int (*dcWaitOnData)(void*, char*, short);
  int (*dcWaitOnDataCancel)(void*);
  int (*dcWaitOnDataDestroy)(void*);

  int (*debug)(void);
  int (*getLock)(void*, void*);
  int (*releaseLock)(void*, void*);
  void* (*getEnvVarsInitLock)(void);
  int (*getIPCtype)(void);
  int (*startDPprocess)(const char*);
  char* (*getInstanceName)(void);
  void (*setInstanceName)(const char*);
};

static const struct Interface library = {
    DCH_api_init,
    DCH_api_destroy,
    DCH_shutdown,
    dp_register,
    dp_online,
    dp_formatData,
    dp_data,
    dp_actionData,
    dp_offline,
    dp_unregister,
    dp_cancel,
    dc_waitOnDataInitialize,
    dc_waitOnData,
    dc_waitOnDataCancel,
    dc_waitOnDataDestroy,
    VX_Debug,
    ZORA_GetLock,
    ZORA_ReleaseLock,
    ZORA_GetEnvVarsInitLock,
    ZORA_GetIPCtype,
    ZORA_StartDPprocess,
    ZORA_GetInstanceName,
    ZORA_SetInstanceName,
};

static int failures = 0;

static void expect(int condition, const char* what) {
  if (!condition) {
    fprintf(stderr, "failed: %s\n", what);
    ++failures;
  }
}

static void testInstanceName(void) {
  library.setInstanceName("  db1");
  expect(strcmp(library.getInstanceName(), "db1") == 0, "the instance name without leading blanks");
}

static void testLocks(void) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  expect(library.getLock(&mutex, NULL) == 0, "taking a lock");
  expect(pthread_mutex_trylock(&mutex) != 0, "the lock being held");
  expect(library.releaseLock(&mutex, NULL) == 0, "releasing it");
  expect(library.getLock(NULL, NULL) == -1, "refusing a null lock");
}

static void testProviderTypes(void) {
  for (int i = 0; i < ZORA_DP_TYPE_COUNT; ++i) {
    expect(strlen(ZORA_DPTypeNames[i]) == 4, "a provider type's name of four letters");
  }
}

/* A row is built without a server. */
static void testRow(void) {
  Long status = -1;
  Long size = 0;
  char* row = NULL;
  expect(library.dpFormatData(&status, &row, &size, "load1", "0.42", 5, 'D') == 0,
         "starting a row");
  expect(status == 0 && row != NULL && size > 0, "the row");

  const Long sizeOfOne = size;
  library.dpFormatData(&status, &row, &size, "load5", "0.40", 5, 'D');
  expect(status == 0 && size > sizeOfOne, "the longer row");

  /* The work buffer is taken back whatever happens to the row; nobody answers this one. */
  expect(library.dpData(&status, 1, 1, &row) == 1, "sending to nobody");
  expect(status == 5 && row == NULL, "the status without an answer");
}

int main(void) {
  library.api_init();
  testInstanceName();
  testLocks();
  testProviderTypes();
  testRow();
  library.api_destroy();
  return failures != 0;
}
