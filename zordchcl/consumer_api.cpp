// The exported functions of the data consumers. A subscription's client lives across calls: its
// address is the handle that the caller gives back.
#include <cstdio>
#include <cstring>

#include "zordchcl/locks.h"
#include "zordchcl/request_scope.h"
#include "zordchcl/trace_unit.h"
#include "zordchcl/zordchcl.h"

using namespace zordchcl;

namespace {

// The subscriptions made last, each guarded by the lock under which it is made.
DCHclient* client_waitOnData;
DCHclient* client_waitForDPStatus;

// The text that dc_waitForDPStatus answered last; all callers share it.
char dc_waitForDPStatusBUF[DCH_STATUS_TEXT_SIZE];

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
    // A client whose request fails is deliberately left alive in its slot.
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

void* dc_waitForDPStatusInitialize() {
  TRC1_FUNCTION("dc_waitForDPStatusInitialize");
  if (ZORA_GetLock(&_dc_waitForDPStatusLock, nullptr) != 0) return nullptr;
  void* handle = nullptr;
  guarded([&] {
    client_waitForDPStatus = new (std::nothrow) DCHclient(0, 0);
    if (client_waitForDPStatus == nullptr) return 1;
    TRC1_STORAGE("Allocated client_waitForDPStatus @%p\n", TRC1_Pointer(client_waitForDPStatus));
    // A client whose request fails stays alive in its slot, as that of a data subscription does.
    if (client_waitForDPStatus->dc_waitForDPStatusInitialize() == 0)
      handle = client_waitForDPStatus;
    return 0;
  });
  if (ZORA_ReleaseLock(&_dc_waitForDPStatusLock, handle) != 0) handle = nullptr;
  return handle;
}

char* dc_waitForDPStatus(void* handle) {
  TRC1_FUNCTION("dc_waitForDPStatus");
  std::memset(dc_waitForDPStatusBUF, 0, sizeof dc_waitForDPStatusBUF);
  auto* const client = static_cast<DCHclient*>(handle);
  const char* text = nullptr;
  if (client != nullptr) {
    guarded([&] {
      text = client->dc_waitForDPStatus();
      return 0;
    });
  }
  if (text == nullptr) {
    TRC1_LINE(TRC1_CLASS_EVENTS, "Returning NULL\n");
    return nullptr;
  }
  std::snprintf(dc_waitForDPStatusBUF, sizeof dc_waitForDPStatusBUF, "%s", text);
  TRC1_RETURN(dc_waitForDPStatusBUF);
}

int dc_waitForDPStatusDestroy(void* handle) {
  TRC1_FUNCTION("dc_waitForDPStatusDestroy");
  if (handle == nullptr) TRC1_RETURN(1);
  TRC1_RETURN(guarded([&] {
    const std::unique_ptr<DCHclient> client(static_cast<DCHclient*>(handle));
    return client->dc_waitForDPStatusDestroy();
  }));
}
