#include "suite/threads.h"
#include "zordipc/trace_unit.h"
#include "zordipc/zordipc.h"

DCHipc::DCHipc() : _ipcError(1) {
  TRC1_FUNCTION("DCHipc::DCHipc - BAD");
  TRC1_ERROR("Error: this constructor should not be used.\n");
  TRC1_LEAVE();
}

DCHipc::DCHipc(short typeOfService)
    : _ipcError(0),
      _dchIpcType(static_cast<short>(ZORA_GetIPCtype())),
      _typeOfService(typeOfService),
      _retryRead(1) {
  TRC1_FUNCTION("DCHipc::DCHipc");
  TRC1_DETAIL("ZORA_DCH_IPCTYPE<%d> IPC_QSIZE<%d>\n", _dchIpcType, static_cast<int>(IPC_QSIZE));
  TRC1_DETAIL("typeOfService<%d>\n", _typeOfService);
  TRC1_LEAVE();
}

DCHipc::~DCHipc() {
  TRC1_FUNCTION("DCHipc::~DCHipc");
  if (_typeOfService == SERVICE_SERVER) ipc_delete_cb();
  TRC1_LEAVE();
}

short DCHipc::DCHtimeout() {
  TRC1_FUNCTION("DCHipc::DCHtimeout");
  constexpr short defaultWaitSeconds = 30;
  TRC1_RETURN(defaultWaitSeconds);
}

ZORA_Long DCHipc::startup(void* clientArg, ZORA_Long connectTo) {
  TRC1_FUNCTION("DCHipc::startup");
  switch (_typeOfService) {
    case SERVICE_SERVER: {
      TRC1_DETAIL("DCHipc SERVER Service initializing.\n");
      ipc_new_cb();
      // Started even without a queue: the port is then bound all the same, and the owner sees the
      // error state.
      pthread_t threadId;
      if (ZOR0_CreateThread(IPCServerThread, this, 1, &threadId) != 0) {
        TRC1_ERROR("Error: IPCServerThread thread failed creation.\n");
        ipcSetError(1);
      } else {
        TRC1_STORAGE("IPCServerThread thread created\n");
      }
      if (_ipcCircularBuffer == nullptr) {
        // Said again, because the receiver thread clears the state with each message that it drops.
        ipcSetError(1);
        TRC1_RETURN(1);
      }
      break;
    }
    case SERVICE_CLIENT:
    case SERVICE_UDP_CLIENT:
      TRC1_DETAIL("DCHipc CLIENT Service initializing.\n");
      ipcSetError(IPCClient(clientArg, connectTo, _typeOfService));
      if (ipcGetError() != 0) TRC1_ERROR("Error: IPCClient failed.\n");
      break;
    default:
      TRC1_ERROR("Error: Invalid type of service for DCHipc: %d\n", _typeOfService);
      ipcSetError(1);
  }
  TRC1_RETURN(ipcGetError());
}

void* IPCServerThread(void* object) {
  TRC1_FUNCTION("IPCServerThread");
  auto* server = static_cast<DCHipc*>(object);
  if (server->IPCServer() != 0) {
    TRC1_ERROR("Error: IPCServer initialization failure, cannot continue processing.\n");
    server->ipcSetError(1);
  }
  TRC1_LINE(TRC1_CLASS_EVENTS, "Returning NULL\n");
  return nullptr;
}
