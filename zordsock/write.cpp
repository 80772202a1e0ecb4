#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "suite/cancellation.h"
#include "suite/descriptor_set.h"
#include "suite/dump.h"
#include "suite/osv1.h"
#include "suite/sockets.h"
#include "zordsock/settings.h"
#include "zordsock/strict_answers.h"
#include "zordsock/trace_unit.h"
#include "zordsock/zordsock.h"

using namespace zordsock;

ZORA_Long ipcSock::ipcWrite(void* buffer, ZORA_Long length, unsigned int connectedSockFD) {
  TRC1_FUNCTION("ipcSock::ipcWrite");
  if (length < 0) {
    // As an unsigned size it would reach far behind the buffer.
    TRC1_ERROR("Error: [@%p] a message of %d bytes cannot be sent\n", TRC1_Pointer(this), length);
    TRC1_RETURN(ZORA_Long{-1});
  }
  const char* const message = static_cast<const char*>(buffer);
  const bool sent = connectedSockFD == 0 ? writeDatagrams(trc1Scope, message, length)
                                         : writeStream(trc1Scope, message, length, connectedSockFD);
  if (!sent) TRC1_RETURN(ZORA_Long{-1});
  TRC1_DETAIL("[@%p] Sent %d bytes out of %d\n", TRC1_Pointer(this), length, length);
  if (trc1Scope.on(TRC1_CLASS_DUMP)) ZOR0_PrintDump(buffer, 0, length);
  TRC1_RETURN(length);
}

bool ipcSock::writeDatagrams(const TRC1_Scope& trc1Scope, const char* message, ZORA_Long length) {
  TRC1_DETAIL("[@%p] Using Family=AF_INET, Type=UDP totalLen=%d.\n", TRC1_Pointer(this), length);
  TRC1_ADDRESS("_sockAddress set to ", &_sockAddress, _sockAddrLen);
  // Nobody would wait for the answer to a message that went out just before.
  const suite::CancellationOff cancellationOff;
  // The pool hands it out without a port: it has one when it has sent before.
  if (isStrict(*this) && ZOR0_RetrieveSockPort(_sockUDP) != 0)
    forgetOldAnswers(trc1Scope, *this, _sockUDP);
  ZORA_Long sent = 0;
  while (sent < length) {
    const ZORA_Long chunk = std::min(length - sent, UDP_CHUNK_SIZE);
    const ssize_t count =
        sendto(_sockUDP, message + sent, static_cast<std::size_t>(chunk), 0,
               reinterpret_cast<const sockaddr*>(&_sockAddress), sizeof _sockAddress);
    if (count < 0) {
      TRC1_ERROR("Error: [@%p] SENDTO - Sent %d bytes out of %d: errno=%d: _sockUDP=%d\n",
                 TRC1_Pointer(this), static_cast<int>(count), length, errno, _sockUDP);
      return false;
    }
    sent += static_cast<ZORA_Long>(count);
    if (sent == length) break;
    // The receiver reads one datagram per select: it is not to be overrun.
    OSV1_Sleep(1);
    TRC1_FLOW("[@%p] Sent<%d> Remaining<%d>\n", TRC1_Pointer(this), static_cast<int>(count),
              length - sent);
  }
  return true;
}

bool ipcSock::writeStream(const TRC1_Scope& trc1Scope, const char* message, ZORA_Long length,
                          unsigned int connectedSockFD) {
  TRC1_DETAIL("[@%p] Using Family=AF_INET, Type=TCP.\n", TRC1_Pointer(this));
  TRC1_DETAIL("connectedSockFD set to %d\n", static_cast<int>(connectedSockFD));
  const auto sendWhole = [&] {
    errno = 0;  // a short send sets none, and an older one must not look like a full socket
    // Without MSG_NOSIGNAL a peer that has gone would end the process.
    return send(static_cast<int>(connectedSockFD), message, static_cast<std::size_t>(length),
                MSG_NOSIGNAL);
  };
  ssize_t count = sendWhole();
  if (count != length && errno == EAGAIN) {
    if (!waitUntilWritable(trc1Scope)) return false;
    count = sendWhole();
  }
  if (count == length) return true;
  TRC1_ERROR("Error: [@%p] SEND - Sent %d bytes out of %d: errno=%d\n", TRC1_Pointer(this),
             static_cast<int>(count), length, errno);
  return false;
}

// Waits on this endpoint's own stream socket, not on the connection that would block: on a server
// that is the listening socket. Existing servers count on the wait that this makes.
bool ipcSock::waitUntilWritable(const TRC1_Scope& trc1Scope) {
  TRC1_DETAIL("[@%p] SEND would block - waiting on Select for %d seconds.\n", TRC1_Pointer(this),
              _envDCHtimeout);
  ZOR0_DescriptorSet writeSet;
  int count = -1;
  if (writeSet.reset(_sockTCP)) {
    writeSet.add(_sockTCP);
    timeval wait{_envDCHtimeout, 0};
    count = select(_sockTCP + 1, nullptr, writeSet.get(), nullptr, &wait);
  }
  if (count < 1) {
    TRC1_ERROR("Error: [@%p] select - count=%d errno=%d\n", TRC1_Pointer(this), count, errno);
    return false;
  }
  TRC1_DETAIL("[@%p] Select returned. Count=%d, errno=%d\n", TRC1_Pointer(this), count, errno);
  return true;
}
