// The life of a client: construction with its transport, its settings, destruction.
#include "zordchcl/DCHclient.h"

#include <new>

#include "suite/osv1.h"
#include "suite/sockets.h"
#include "zordchcl/trace_unit.h"
#include "zordlpc/zordlpc.h"
#include "zordsock/zordsock.h"

namespace {

constexpr int endPauseSeconds = 1;

// A transport has no virtual destructor: each goes as the class that it was made as.
template <class Transport>
void deleteTransport(DCHipc** transport) {
  auto* const made = static_cast<Transport*>(*transport);
  made->Transport::~Transport();
  ::operator delete(made);
  *transport = nullptr;
}

}  // namespace

DCHclient::DCHclient(ZORA_Long openInterruptSocket, ZORA_Long useFromSockPool)
    : _clientIpcType(ZORA_GetIPCtype()),
      _ipcClient(nullptr),
      _readBuffer(nullptr),
      _applName{},
      _attrGroup{},
      _interruptFD(NO_SOCKET),
      _DCHtimeout(0),
      _ipcReadTimeout(0),
      _clientError(0),
      _interruptPort(0) {
  TRC1_FUNCTION("DCHclient::DCHclient");
  switch (_clientIpcType) {
    case IPC_TYPE_SOCKET:
      openSocketTransport(trc1Scope, openInterruptSocket, useFromSockPool);
      break;
    case IPC_TYPE_LPC:
      _ipcClient = new (std::nothrow) ipcLPC(SERVICE_CLIENT, nullptr, 0);
      TRC1_DETAIL("Allocated _ipcClient @%p\n", TRC1_Pointer(_ipcClient));
      if (_ipcClient == nullptr) fail();
      break;
    default:
      TRC1_ERROR("Error: Unrecognized IPC type %d, exiting...\n", _clientIpcType);
      OSV1_EndProcess(endPauseSeconds);
  }
  if (_ipcClient != nullptr && _ipcClient->ipcGetError() > 0) {
    // Without a transport there is nothing that a caller could fall back on.
    TRC1_ERROR("Error: DCH Client cannot continue. IPC initialization failed, exiting...\n");
    OSV1_EndProcess(endPauseSeconds);
  }
  TRC1_DETAIL("Allocated DCH Client object @%p, _interruptFD[%d]\n", TRC1_Pointer(this),
              _interruptFD);
  TRC1_LEAVE();
}

void DCHclient::openSocketTransport(const TRC1_Scope& trc1Scope, ZORA_Long openInterruptSocket,
                                    ZORA_Long useFromSockPool) {
  _ipcClient = new (std::nothrow) ipcSock(SERVICE_UDP_CLIENT, 0, useFromSockPool);
  if (_ipcClient == nullptr) {
    TRC1_ERROR("Error: ipcSock creation failed.\n");
    fail();
    return;
  }
  TRC1_DETAIL("Allocated _ipcClient @%p\n", TRC1_Pointer(_ipcClient));
  if (openInterruptSocket != 0) openInterrupt(trc1Scope);
  _DCHtimeout = _ipcClient->DCHtimeout();
  _ipcReadTimeout = _DCHtimeout;
  TRC1_DETAIL("_DCHtimeout=%d _ipcReadTimeout=%d\n", _DCHtimeout, _ipcReadTimeout);
}

void DCHclient::openInterrupt(const TRC1_Scope& trc1Scope) {
  sockaddr_in address{};
  int systemError = 0;
  const int descriptor =
      ZOR0_OpenLocalSocket(SOCK_KIND_UDP, 0, &address, ZOR0_SOCKET_LOOPBACK, &systemError);
  if (descriptor < 0) {
    TRC1_ERROR("Error: _interruptFD[%d]  errno=%d\n", descriptor, systemError);
    fail();
    return;
  }
  _interruptFD = descriptor;
  _interruptPort = ZOR0_RetrieveSockPort(_interruptFD);
  TRC1_STORAGE("_interruptFD socket[%d] bound to port[%d]\n", _interruptFD, _interruptPort);
}

DCHclient::~DCHclient() {
  TRC1_FUNCTION("DCHclient::~DCHclient");
  switch (_clientIpcType) {
    case IPC_TYPE_SOCKET:
      if (_ipcClient != nullptr) _ipcClient->releaseIPC();
      if (_interruptFD != NO_SOCKET) {
        TRC1_DETAIL("Closing socket[%d]\n", _interruptFD);
        ZOR0_CloseTheSocket(_interruptFD);
      }
      if (_ipcClient != nullptr) {
        TRC1_DETAIL("Deleting _ipcClient @%p, _interruptFD[%d]\n", TRC1_Pointer(_ipcClient),
                    _interruptFD);
        deleteTransport<ipcSock>(&_ipcClient);
      }
      break;
    case IPC_TYPE_LPC:
      TRC1_ERROR("FINISH ME UP!!!!");
      if (_ipcClient != nullptr) {
        TRC1_DETAIL("Deleting _ipcClient @%p\n", TRC1_Pointer(_ipcClient));
        deleteTransport<ipcLPC>(&_ipcClient);
      }
      break;
    default:
      TRC1_ERROR("Error: Unrecognized IPC type %d\n", _clientIpcType);
  }
  TRC1_DETAIL("Deleting DCH Client object @%p\n", TRC1_Pointer(this));
  TRC1_LEAVE();
}

void DCHclient::setReadTimeout(ZORA_Long seconds) {
  TRC1_FUNCTION("DCHclient::setReadTimeout");
  _ipcReadTimeout = seconds != 0 ? seconds : _DCHtimeout;
  TRC1_LEAVE();
}

void DCHclient::setRetryRead(ZORA_Long count) {
  TRC1_FUNCTION("DCHclient::setRetryRead");
  if (_ipcClient != nullptr) _ipcClient->ipcSetRetryRead(count);
  TRC1_LEAVE();
}

void DCHclient::shutdown(ZORA_Long) {
  TRC1_FUNCTION("DCHclient::shutdown");
  if (!failed()) TRC1_ERROR("Error: FINISH ME UP!");
  TRC1_LEAVE();
}
