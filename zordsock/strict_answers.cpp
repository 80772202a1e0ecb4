#include "zordsock/strict_answers.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cerrno>

#include "zordsock/settings.h"
#include "zordsock/trace_unit.h"

namespace zordsock {
namespace {

void traceThrownAway(const TRC1_Scope& trc1Scope, const ipcSock& endpoint,
                     const sockaddr_in& sender, ZORA_Long length) {
  if (!trc1Scope.on(TRC1_CLASS_DETAIL)) return;
  char dotted[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &sender.sin_addr, dotted, sizeof dotted);
  TRC1_DETAIL("[@%p] Threw away %d bytes from %s[%d]: no answer to this request\n",
              TRC1_Pointer(&endpoint), length, dotted, ntohs(sender.sin_port));
}

}  // namespace

bool isStrict(const ipcSock& endpoint) {
  return _envStrictAnswers && endpoint._useFromSockPool != 0 &&
         endpoint.ipcTypeOfService() == SERVICE_UDP_CLIENT;
}

void forgetOldAnswers(const TRC1_Scope& trc1Scope, const ipcSock& endpoint) {
  const int errorBefore = errno;
  // The port goes first: once the socket is empty nothing new comes in.
  const sockaddr nowhere = {.sa_family = AF_UNSPEC, .sa_data = {}};
  connect(endpoint._sockUDP, &nowhere, sizeof nowhere);
  char bytes[UDP_CHUNK_SIZE];
  sockaddr_in sender = {};
  socklen_t senderLength = sizeof sender;
  ssize_t length;
  while ((length = recvfrom(endpoint._sockUDP, bytes, sizeof bytes, MSG_DONTWAIT,
                            reinterpret_cast<sockaddr*>(&sender), &senderLength)) >= 0)
    traceThrownAway(trc1Scope, endpoint, sender, static_cast<ZORA_Long>(length));
  errno = errorBefore;
}

bool isFromPeer(const TRC1_Scope& trc1Scope, const ipcSock& endpoint, const sockaddr_in& sender,
                ZORA_Long length) {
  const sockaddr_in& peer = endpoint._sockAddress;
  if (sender.sin_port == peer.sin_port && sender.sin_addr.s_addr == peer.sin_addr.s_addr)
    return true;
  traceThrownAway(trc1Scope, endpoint, sender, length);
  return false;
}

}  // namespace zordsock
