// The exported functions of the data consumers. A subscription's client lives across calls: its
// address is the handle that the caller gives back.
#include "zordchcl/frame.h"
#include "zordchcl/locks.h"
#include "zordchcl/trace_unit.h"
#include "zordchcl/zordchcl.h"

using namespace zordchcl;

namespace {

// The data subscription made last. Guarded by _dc_waitOnDataLock.
DCHclient* client_waitOnData;

// Runs `request`, whose result is a number, under the lock that keeps cancelling and ending a
// subscription apart. A lock that cannot be had or given back makes the result 1.
template <class Request>
int underCancelLock(DCHclient* client, Request request) {
  if (ZORA_GetLock(&_dc_waitOnDataCancelLock, client) != 0) return 1;
  const int result = client != nullptr ? guarded(request) : 1;
  return ZORA_ReleaseLock(&_dc_waitOnDataCancelLock, client) == 0 ? result : 1;
}

}  // namespace

void* dc_waitOnDataInitialize(const char* applName, const char* attrGroup) {
  TRC1_FUNCTION("dc_waitOnDataInitialize");
  if (ZORA_GetLock(&_dc_waitOnDataLock, nullptr) != 0) {
    TRC1_ERROR("Error: unable to acquire dc_waitOnDataLock\n");
    return nullptr;
  }
  void* handle = nullptr;
  guarded([&] {
    client_waitOnData = new (std::nothrow) DCHclient(1, 0);
    if (client_waitOnData == nullptr) return 1;
    TRC1_STORAGE("Allocated client_waitOnData @%p\n", TRC1_Pointer(client_waitOnData));
    // A client whose request fails stays alive in its slot: existing programs look at it there.
    if (client_waitOnData->dc_waitOnDataInitialize(applName, attrGroup) == 0)
      handle = client_waitOnData;
    return 0;
  });
  if (ZORA_ReleaseLock(&_dc_waitOnDataLock, handle) != 0) handle = nullptr;
  return handle;
}

int dc_waitOnData(void* handle, char* buffer, short bufferLength) {
  TRC1_FUNCTION("dc_waitOnData");
  auto* const client = static_cast<DCHclient*>(handle);
  if (client == nullptr) TRC1_RETURN(1);
  TRC1_RETURN(guarded([&] { return client->dc_waitOnData(buffer, bufferLength); }));
}

int dc_waitOnDataCancel(void* handle) {
  TRC1_FUNCTION("dc_waitOnDataCancel");
  auto* const client = static_cast<DCHclient*>(handle);
  TRC1_RETURN(underCancelLock(client, [&] {
    TRC1_DETAIL("clientObject=@%p\n", handle);
    return client->dc_waitOnDataCancel();
  }));
}

int dc_waitOnDataDestroy(void* handle) {
  TRC1_FUNCTION("dc_waitOnDataDestroy");
  auto* const client = static_cast<DCHclient*>(handle);
  TRC1_RETURN(underCancelLock(client, [&] {
    const ZORA_Long result = client->dc_waitOnDataDestroy();
    TRC1_STORAGE("Deleting DCHclient object @%p\n", handle);
    delete client;
    return result;
  }));
}
