// The exported functions that manage the library, and those of the data providers.
#include "suite/threads.h"
#include "zordchcl/locks.h"
#include "zordchcl/request_scope.h"
#include "zordchcl/trace_unit.h"
#include "zordchcl/zordchcl.h"

using zordchcl::withCheckedClient;
using zordchcl::withClient;

namespace zordchcl {

pthread_mutex_t _dc_waitOnDataLock;
pthread_mutex_t _dc_waitOnDataCancelLock;
pthread_mutex_t _dc_waitForDPStatusLock;

namespace {

short _DCHInit = 0;  // 1 from the first DCH_api_init on
pthread_mutex_t* const consumerLocks[] = {&_dc_waitOnDataLock, &_dc_waitOnDataCancelLock,
                                          &_dc_waitForDPStatusLock};

}  // namespace
}  // namespace zordchcl

using namespace zordchcl;

void DCH_api_init() {
  TRC1_FUNCTION("DCH_api_init");
  if (_DCHInit == 0) {
    _DCHInit = 1;
    TRC1_STORAGE("Initializing DCHclient locks.\n");
    for (pthread_mutex_t* lock : consumerLocks) ZOR0_InitializeMutex(lock);
  }
  TRC1_LEAVE();
}

void DCH_api_destroy() {
  TRC1_FUNCTION("DCH_api_destroy");
  TRC1_STORAGE("Destroying DCHclient locks.\n");
  // _DCHInit stays: the library is initialised once per process.
  for (pthread_mutex_t* lock : consumerLocks) pthread_mutex_destroy(lock);
  TRC1_LEAVE();
}

void DCH_shutdown(ZORA_Long value) {
  withClient([&](DCHclient& client) {
    client.shutdown(value);
    return 0;
  });
}

int dp_register(ZORA_Long* status, const char* registration) {
  TRC1_FUNCTION("dp_register");
  TRC1_RETURN(
      withClient([&](DCHclient& client) { return client.dp_register(status, registration); }));
}

int dp_online(ZORA_Long* status, ZORA_Long* handle, const char* applName, const char* attrGroup,
              const char* sourceName) {
  TRC1_FUNCTION("dp_online");
  TRC1_RETURN(withClient([&](DCHclient& client) {
    return client.dp_online(status, handle, applName, attrGroup, sourceName);
  }));
}

int dp_formatData(ZORA_Long* status, char** workBuffer, ZORA_Long* size, const char* attrName,
                  const void* attrValue, ZORA_Long valueSize, char attrType) {
  TRC1_FUNCTION("dp_formatData");
  TRC1_RETURN(withCheckedClient(trc1Scope, [&](DCHclient& client) {
    return client.dp_formatData(status, workBuffer, size, attrName, attrValue, valueSize, attrType);
  }));
}

int dp_data(ZORA_Long* status, ZORA_Long handle, short dataCode, char** workBuffer) {
  TRC1_FUNCTION("dp_data");
  TRC1_RETURN(withCheckedClient(trc1Scope, [&](DCHclient& client) {
    return client.dp_data(status, handle, dataCode, workBuffer);
  }));
}

int dp_actionData(ZORA_Long* status, ZORA_Long handle, short dataCode, char** workBuffer,
                  short readTimeout, short retryCount) {
  TRC1_FUNCTION("dp_actionData");
  TRC1_RETURN(withCheckedClient(
      trc1Scope,
      [&](DCHclient& client) {
        client.setReadTimeout(readTimeout);
        client.setRetryRead(retryCount);
        return client.dp_data(status, handle, dataCode, workBuffer);
      },
      [&](const DCHclient& client) {
        TRC1_STORAGE("Deleting DCHclient @%p\n", TRC1_Pointer(&client));
      }));
}

int dp_offline(ZORA_Long* status, ZORA_Long handle) {
  TRC1_FUNCTION("dp_offline");
  TRC1_RETURN(withClient([&](DCHclient& client) { return client.dp_offline(status, handle); }));
}

int dp_unregister(ZORA_Long* status, const char* applName) {
  TRC1_FUNCTION("dp_unregister");
  TRC1_RETURN(
      withClient([&](DCHclient& client) { return client.dp_unregister(status, applName); }));
}

int dp_cancel(ZORA_Long* status, ZORA_Long handle) {
  TRC1_FUNCTION("dp_cancel");
  TRC1_RETURN(withClient([&](DCHclient& client) { return client.dp_cancel(status, handle); }));
}

namespace {

// The scope of the functions without a result: they report a client that could not be made.
template <class Request>
void runWithClient(const TRC1_Scope& trc1Scope, Request request) {
  withClient(
      [&](DCHclient& client) {
        request(client);
        return 0;
      },
      [&] {
        TRC1_ERROR("Error: failed to instantiate DCHclient.\n");
        return 1;
      });
}

}  // namespace

void dp_waitForAction(ZORA_Long value) {
  TRC1_FUNCTION("dp_waitForAction");
  runWithClient(trc1Scope, [&](DCHclient& client) { client.dp_waitForAction(value); });
  TRC1_LEAVE();
}

void dp_provideActionResults(ZORA_Long first, ZORA_Long second) {
  TRC1_FUNCTION("dp_provideActionResults");
  runWithClient(trc1Scope,
                [&](DCHclient& client) { client.dp_provideActionResults(first, second); });
  TRC1_LEAVE();
}
