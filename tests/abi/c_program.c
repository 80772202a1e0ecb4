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
  void (*dpWaitForAction)(Long);
  void (*dpProvideActionResults)(Long, Long);

  void* (*dcWaitOnDataInitialize)(const char*, const char*);
  int (*dcWaitOnData)(void*, char*, short);
  int (*dcWaitOnDataCancel)(void*);
  int (*dcWaitOnDataDestroy)(void*);
  void* (*dcWaitForDPStatusInitialize)(void);
  char* (*dcWaitForDPStatus)(void*);
  int (*dcWaitForDPStatusDestroy)(void*);
  int (*dcGetApplications)(Long*, char**, const char*, short);
  int (*dcGetApplAttributes)(Long*, char**, const char*, short);
  int (*dcGetApplHelp)(Long*, char**, const char*, short);
  int (*dcProvideAction)(short, const char*, const char*, const char*, const char*, Long,
                         const char*);
  Long (*dcWaitForActionResults)(Long);
  int (*dcDeferReportRequest)(void*, Long, Long, const char*, const char*, const char*);

  int (*debug)(void);
  int (*getLock)(void*, void*);
  int (*releaseLock)(void*, void*);
  void* (*getEnvVarsInitLock)(void);
  int (*getIPCtype)(void);
  int (*startDPprocess)(const char*);
  char* (*getInstanceName)(void);
  void (*setInstanceName)(const char*);
  int (*setSubnodeName)(const char*, const char*, const char*, const char*, char*, char*,
                        const char*);
  char* (*getSrcName)(const char*);
  int (*getApplKey)(const char*, char*);
  char* (*computeChecksum)(const char*);
  void (*validateHelpText)(char*);
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
    dp_waitForAction,
    dp_provideActionResults,
    dc_waitOnDataInitialize,
    dc_waitOnData,
    dc_waitOnDataCancel,
    dc_waitOnDataDestroy,
    dc_waitForDPStatusInitialize,
    dc_waitForDPStatus,
    dc_waitForDPStatusDestroy,
    dc_getApplications,
    dc_getApplAttributes,
    dc_getApplHelp,
    dc_provideAction,
    dc_waitForActionResults,
    dc_deferReportRequest,
    VX_Debug,
    ZORA_GetLock,
    ZORA_ReleaseLock,
    ZORA_GetEnvVarsInitLock,
    ZORA_GetIPCtype,
    ZORA_StartDPprocess,
    ZORA_GetInstanceName,
    ZORA_SetInstanceName,
    ZORA_SetSubnodeName,
    ZORA_GetSrcNameFromSubNodeName,
    ZORA_GetApplKeyFromSubNodeName,
    ZORA_ComputeChecksumOnAttrGroup,
    ZORA_validateHelpText,
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

static void testSubnodeNames(void) {
  char name[ZORA_MAX_SUBNODE_NAME + 1];
  char untouched[ZORA_MAX_UNTOUCHED_NAME + 1];
  char key[ZORA_APPL_KEY_LENGTH + 1];
  expect(library.setSubnodeName("ABC", "load", "hostA", "00", name, untouched, "X1") == 0,
         "building a subnode name");
  expect(strcmp(name, "hostA:ABC00_X1") == 0, "the subnode name");
  expect(strcmp(untouched, "hostA:ABCload00") == 0, "the untouched name");
  expect(strcmp(library.getSrcName(name), "hostA") == 0, "its source name");
  expect(library.getApplKey(name, key) == 0 && strcmp(key, "ABC") == 0, "its application key");
}

static void testGroupTexts(void) {
  char help[] = "one:two";
  library.validateHelpText(help);
  expect(strcmp(help, "one two") == 0, "a help text without delimiters");
  expect(strcmp(library.computeChecksum("123456789"), "14630") == 0, "the checksum of a group");
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

/* Nobody answers: what a consumer gets then. */
static void testCatalogue(void) {
  Long length = -1;
  char row[] = "not null";
  char* buffer = row;
  expect(library.dcGetApplications(&length, &buffer, NULL, 1) == 1, "asking nobody");
  expect(length == 0 && buffer == NULL, "the answer of nobody");
  expect(library.dcWaitForActionResults(17) == -1, "the result of nobody's action");
}

static void testStatusSubscription(void) {
  void* handle = library.dcWaitForDPStatusInitialize();
  expect(handle != NULL, "a status subscription");
  expect(library.dcWaitForDPStatus(NULL) == NULL, "a wait without a handle");
  expect(library.dcWaitForDPStatusDestroy(handle) == 0, "ending a status subscription");
}

/* These have no answer, or no request. */
static void testRequestsWithoutAnAnswer(void) {
  expect(library.dcProvideAction(1, "owner", "node", "sub", "name", 17, NULL) == 0, "an action");
  expect(library.dcDeferReportRequest(NULL, 17, 1, "ABC", "table", "hostA") == 0, "a deferral");
  library.dpWaitForAction(1);
  library.dpProvideActionResults(1, 2);
}

int main(void) {
  library.api_init();
  testInstanceName();
  testSubnodeNames();
  testGroupTexts();
  testLocks();
  testProviderTypes();
  testRow();
  testCatalogue();
  testStatusSubscription();
  testRequestsWithoutAnAnswer();
  library.api_destroy();
  return failures != 0;
}
