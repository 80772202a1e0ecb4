// The process's pool of datagram sockets: built once, never shrunk, grown or closed.
#include <cerrno>
#include <ctime>
#include <new>

#include "suite/cancellation.h"
#include "suite/osv1.h"
#include "suite/sockets.h"
#include "suite/threads.h"
#include "zordsock/settings.h"
#include "zordsock/strict_answers.h"
#include "zordsock/trace_unit.h"
#include "zordsock/zordsock.h"

namespace zordsock {

UDPSockElement* _UDPSockList;
pthread_mutex_t _UDPSockLock;
pthread_cond_t _UDPSockCond;

UDPSockElement* findPooledSocket(ZORA_Long descriptor) {
  if (_UDPSockList != nullptr)
    for (int i = 0; i < _envDCHUDPSocks; ++i)
      if (_UDPSockList[i].sockUDP == descriptor) return &_UDPSockList[i];
  return nullptr;
}

}  // namespace zordsock

using namespace zordsock;

namespace {

constexpr int waitSeconds = 10;
constexpr int pauseSeconds = 3;

// Marks the first free element taken and returns its index, -1 when all are in use. With strict
// answers it is the next free one in turn: while the others rest, the system gives their ports to
// nobody, and an answer that comes late finds none of ours that waits there.
int takeFreeElement() {
  static int turn = 0;  // guarded by _UDPSockLock
  for (int i = 0; i < _envDCHUDPSocks; ++i) {
    const int index = (turn + i) % _envDCHUDPSocks;
    if (_UDPSockList[index].inUse == 0) {
      _UDPSockList[index].inUse = 1;
      if (_envStrictAnswers) turn = index + 1;
      return index;
    }
  }
  return -1;
}

// The pool's lock, which is held already. A thread that is cancelled while it waits gives it back.
class PoolLock {
 public:
  explicit PoolLock(ipcSock* owner) : _owner(owner) {}
  ~PoolLock() { ZORA_ReleaseLock(&_UDPSockLock, _owner); }
  PoolLock(const PoolLock&) = delete;
  PoolLock& operator=(const PoolLock&) = delete;

 private:
  ipcSock* const _owner;
};

}  // namespace

void ipcSock::buildPool(const TRC1_Scope& trc1Scope) {
  TRC1_STORAGE("Initializing mutex[@%p] and Cond[@%p] for ipcSock object @%p\n",
               TRC1_Pointer(&_UDPSockLock), TRC1_Pointer(&_UDPSockCond), TRC1_Pointer(this));
  ZOR0_InitializeMutex(&_UDPSockLock);
  ZOR0_InitializeCondVar(&_UDPSockCond);
  TRC1_DETAIL("Initializing %d UDP sockets.\n", _envDCHUDPSocks);
  if (_envDCHUDPSocks >= 0)
    _UDPSockList = new (std::nothrow) UDPSockElement[static_cast<std::size_t>(_envDCHUDPSocks)];
  if (_UDPSockList == nullptr) {
    TRC1_ERROR("Error: allocation of %d UDPSockElement failed\n", _envDCHUDPSocks);
    setSockError(1);
    return;
  }
  TRC1_STORAGE("Allocated _UDPSockList @%p\n", TRC1_Pointer(_UDPSockList));
  for (int i = 0; i < _envDCHUDPSocks; ++i) {
    UDPSockElement& element = _UDPSockList[i];
    int systemError = 0;
    element.inUse = 0;
    setClientAddr(nullptr, 0);
    element.sockUDP =
        ZOR0_OpenLocalSocket(SOCK_KIND_UDP, 0, &_sockAddress, ZOR0_SOCKET_PLAIN, &systemError);
    if (element.sockUDP < 0)
      TRC1_ERROR("Error: _UDPSockList[i].sockUDP[%d]  errno=%d\n", element.sockUDP, systemError);
    else
      TRC1_DETAIL("[%d] UDP Socket %d allocated.\n", i, element.sockUDP);
  }
}

ZORA_Long ipcSock::allocateIPC() {
  TRC1_FUNCTION("ipcSock::allocateIPC");
  TRC1_FLOW("_useFromSockPool[%d] _UDPSockLock[@%p]\n", _useFromSockPool,
            TRC1_Pointer(&_UDPSockLock));
  if (_useFromSockPool == 0) {
    TRC1_DETAIL("Creating UDP socket from outside of pool.\n");
    setClientAddr(nullptr, 0);
    int systemError = 0;
    const ZORA_Long descriptor =
        ZOR0_OpenLocalSocket(SOCK_KIND_UDP, 0, &_sockAddress, ZOR0_SOCKET_PLAIN, &systemError);
    TRC1_STORAGE("Allocated UDP socket %d from outside socket pool\n", descriptor);
    TRC1_RETURN(descriptor);
  }
  if (_UDPSockList == nullptr) TRC1_RETURN(NO_SOCKET);
  TRC1_FLOW("Try to get _UDPSockLock[@%p]\n", TRC1_Pointer(&_UDPSockLock));
  if (ZORA_GetLock(&_UDPSockLock, this) != 0) {
    TRC1_ERROR("Error: pthread_cond_lock failed. errno=%d\n", errno);
    TRC1_RETURN(NO_SOCKET);
  }
  TRC1_FLOW("_UDPSockLock[@%p] taken.\n", TRC1_Pointer(&_UDPSockLock));
  ZORA_Long descriptor = NO_SOCKET;
  {
    const PoolLock lock(this);
    do {
      const int index = takeFreeElement();
      if (index >= 0) {
        descriptor = _UDPSockList[index].sockUDP;
        TRC1_DETAIL("[%d] UDP Socket %d is available\n", index, descriptor);
        break;
      }
    } while (waitForFreeElement(trc1Scope));
  }
  if (isStrict(*this) && descriptor >= 0) {
    const suite::CancellationOff cancellationOff;  // the socket is not yet there to be given back
    forgetOldAnswers(trc1Scope, *this, descriptor);
  }
  TRC1_RETURN(descriptor);
}

bool ipcSock::waitForFreeElement(const TRC1_Scope& trc1Scope) {
  TRC1_DETAIL("No UDP sockets available yet. Waiting on signal.\n");
  const timespec deadline{std::time(nullptr) + waitSeconds, 0};
  errno = 0;  // what it holds afterwards decides, so nothing older may
  const int code = pthread_cond_timedwait(&_UDPSockCond, &_UDPSockLock, &deadline);
  if (code == 0) {
    TRC1_DETAIL("Signal received that UDP socket has become available.\n");
    return true;
  }
  if (errno != EAGAIN && errno != 0) {
    TRC1_ERROR("Error: pthread_cond_wait failed. rc=%d errno=%d\n", code, errno);
    return false;
  }
  TRC1_DETAIL("Wait timeout on UDP sock pool - errno=%d\n", errno);
  if (ZORA_ReleaseLock(&_UDPSockLock, this) == 0) {
    const suite::CancellationOff cancellationOff;  // the lock is not there to be given back
    OSV1_Sleep(pauseSeconds);
    if (ZORA_GetLock(&_UDPSockLock, this) != 0) TRC1_ERROR("Error: unable to re-acquire lock\n");
  }
  return true;
}

ZORA_Long ipcSock::releaseIPC() {
  TRC1_FUNCTION("ipcSock::releaseIPC");
  TRC1_FLOW("_useFromSockPool[%d] _UDPSockLock[@%p]\n", _useFromSockPool,
            TRC1_Pointer(&_UDPSockLock));
  if (_useFromSockPool == 0) TRC1_RETURN(0);
  if (_UDPSockList == nullptr) TRC1_RETURN(1);
  if (ZORA_GetLock(&_UDPSockLock, this) != 0) {
    TRC1_ERROR("Error: pthread_cond_lock failed. errno=%d\n", errno);
    TRC1_RETURN(1);
  }
  UDPSockElement* const element = findPooledSocket(_sockUDP);
  if (element != nullptr) {
    element->inUse = 0;
    TRC1_DETAIL("[%d] UDP Socket %d made available for use.\n",
                static_cast<int>(element - _UDPSockList), _sockUDP);
  }
  ZORA_ReleaseLock(&_UDPSockLock, this);
  if (element == nullptr) {
    TRC1_ERROR("Error: UDP socket %d not found.\n", _sockUDP);
    TRC1_RETURN(1);
  }
  TRC1_DETAIL("Signaling UDP socket waiters.\n");
  const int code = pthread_cond_signal(&_UDPSockCond);
  if (code != 0) {
    TRC1_ERROR("Error: pthread_cond_signal failed. rc=%d errno=%d\n", code, errno);
    TRC1_RETURN(1);
  }
  TRC1_RETURN(0);
}
