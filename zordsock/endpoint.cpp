// The life of an endpoint: construction, opening as a client, the peer address, destruction.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "suite/names.h"
#include "suite/sockets.h"
#include "zordsock/settings.h"
#include "zordsock/trace_unit.h"
#include "zordsock/zordsock.h"

using namespace zordsock;

ipcSock::ipcSock() : _sockError(1) {
  TRC1_FUNCTION("ipcSock::ipcSock - BAD");
  TRC1_ERROR("Error: this constructor should not be used.\n");
  TRC1_LEAVE();
}

ipcSock::ipcSock(short typeOfService, ZORA_Long connectTo, ZORA_Long useFromSockPool)
    : DCHipc(typeOfService), _sockError(0), _useFromSockPool(useFromSockPool) {
  TRC1_FUNCTION("ipcSock::ipcSock");
  void* const initLock = ZORA_GetEnvVarsInitLock();
  TRC1_FLOW("service=%d connectTo=%d _useFromSockPool=%d _envVarsInit=%d _envDCHUDPInit=%d\n",
            typeOfService, connectTo, _useFromSockPool, _envVarsInit.load(), _envDCHUDPInit.load());
  TRC1_FLOW("Acquiring EnvVars Init Lock. [@%p]\n", initLock);
  if (ZORA_GetLock(initLock, this) == 0) {
    if (_envVarsInit == 0) {
      _envVarsInit = 1;
      getEnvVariables();
    }
    if (_envDCHUDPInit == 0 && useFromSockPool != 0 && connectTo == 0 &&
        typeOfService == SERVICE_UDP_CLIENT) {
      _envDCHUDPInit = 1;
      buildPool(trc1Scope);
    }
    TRC1_FLOW("Releasing EnvVars Init Lock. [@%p]\n", initLock);
    ZORA_ReleaseLock(initLock, this);
  }
  setSockError(startup(nullptr, connectTo));
  if (_sockError != 0) TRC1_ERROR("Error: startup failed. _sockError=%d\n", _sockError.load());
  setSockError(ipcGetError());
  if (_sockError != 0) TRC1_ERROR("Error: _sockError=%d\n", _sockError.load());
  TRC1_LEAVE();
}

ipcSock::~ipcSock() {
  TRC1_FUNCTION("ipcSock::~ipcSock");
  TRC1_DETAIL("_useFromSockPool=%d, _sockTCP=%d, _sockUDP=%d\n", _useFromSockPool, _sockTCP,
              _sockUDP);
  if (_sockTCP != NO_SOCKET) {
    TRC1_FLOW("Closing TCP socket %d for DCH port %d\n", _sockTCP, _envPortNo.load());
    ZOR0_CloseTheSocket(_sockTCP);
  }
  if (_useFromSockPool == 0) {
    TRC1_FLOW("Closing UDP socket %d for DCH port %d\n", _sockUDP, _envPortNo.load());
    ZOR0_CloseTheSocket(_sockUDP);
  }
  TRC1_DETAIL("ipcTypeOfService=%d\n", ipcTypeOfService());
  if (_useFromSockPool != 0 && ipcTypeOfService() == SERVICE_UDP_CLIENT &&
      findPooledSocket(_sockUDP) == nullptr) {
    TRC1_FLOW("Closing UDP socket %d\n", _sockUDP);
    ZOR0_CloseTheSocket(_sockUDP);
  }
  TRC1_LEAVE();
}

ZORA_Long ipcSock::IPCClient(void*, ZORA_Long connectTo, ZORA_Long typeOfService) {
  TRC1_FUNCTION("ipcSock::IPCClient");
  setSockError(0);
  TRC1_STORAGE("DCHName[%s] DCHPort[%d] connectTo[%d] typeOfServer[%d]\n", _envDCHname,
               _envPortNo.load(), connectTo, typeOfService);
  if (connectTo != 0)
    openFreshSockets(trc1Scope);
  else
    openForPeer(trc1Scope, typeOfService);
  if (_sockError == 0 && trc1Scope.on(TRC1_CLASS_DETAIL)) {
    char label[64];
    std::snprintf(label, sizeof label, "Created _sockUDP[%d] bound to port",
                  static_cast<int>(_sockUDP));
    TRC1_ADDRESS(label, &_sockAddress, _sockAddrLen);
    if (connectTo == 0 && typeOfService != SERVICE_UDP_CLIENT) {
      // Shows the datagram descriptor here too, as this line always has.
      std::snprintf(label, sizeof label, "Created _sockTCP[%d] bound to port",
                    static_cast<int>(_sockUDP));
      TRC1_ADDRESS(label, &_sockAddress, _sockAddrLen);
    }
  }
  TRC1_RETURN(_sockError.load());
}

void ipcSock::openFreshSockets(const TRC1_Scope& trc1Scope) {
  if (openSocket(trc1Scope, SOCK_KIND_UDP, &_sockUDP, "_sockUDP"))
    openSocket(trc1Scope, SOCK_KIND_TCP, &_sockTCP, "_sockTCP");
}

void ipcSock::openForPeer(const TRC1_Scope& trc1Scope, ZORA_Long typeOfService) {
  setClientAddr(nullptr, 0);
  _sockUDP = allocateIPC();
  if (_sockUDP < 0) {
    TRC1_ERROR("Error: _sockUDP[%d]  errno=%d\n", _sockUDP, errno);
    setSockError(1);
  } else if (typeOfService != SERVICE_UDP_CLIENT) {
    setClientAddr(nullptr, 0);
    openSocket(trc1Scope, SOCK_KIND_TCP, &_sockTCP, "_sockTCP");
  }
  if (_sockError != 0) return;
  TRC1_DETAIL("Using DCH port number: %d\n", _envPortNo.load());
  if (ZOR0_ConvertNameToAddr(_envDCHname, _envPortNo, &_sockAddress) == 0) {
    TRC1_ERROR("Error: ZOR0_ConvertNameToAddr failed for[%s]\n", _envDCHname);
    setSockError(1);
  }
}

bool ipcSock::openSocket(const TRC1_Scope& trc1Scope, int kind, ZORA_Long* descriptor,
                         const char* name) {
  int systemError = 0;
  *descriptor = ZOR0_OpenLocalSocket(kind, 0, &_sockAddress, ZOR0_SOCKET_PLAIN, &systemError);
  if (*descriptor >= 0) return true;
  TRC1_ERROR("Error: %s[%d]  errno=%d\n", name, *descriptor, systemError);
  setSockError(1);
  return false;
}

void ipcSock::setClientAddr(void* clientAddr, ZORA_Long) {
  TRC1_FUNCTION("ipcSock::setClientAddr");
  if (clientAddr != nullptr)
    std::memcpy(&_sockAddress, clientAddr, sizeof _sockAddress);
  else
    std::memset(&_sockAddress, 0, sizeof _sockAddress);
  TRC1_LEAVE();
}

unsigned short ipcSock::sockPortTCP() {
  TRC1_FUNCTION("ipcSock::sockPortTCP");
  _sockPortTCP = ZOR0_RetrieveSockPort(_sockTCP);
  TRC1_RETURN(_sockPortTCP);
}

unsigned short ipcSock::sockPortUDP() {
  TRC1_FUNCTION("ipcSock::sockPortUDP");
  _sockPortUDP = ZOR0_RetrieveSockPort(_sockUDP);
  TRC1_RETURN(_sockPortUDP);
}
