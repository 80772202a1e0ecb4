#include "zordsock/strict_answers.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "suite/sockets.h"
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

// The port goes first: nothing new comes in, so it ends, whatever strangers send.
void emptySocket(const TRC1_Scope& trc1Scope, const ipcSock& endpoint, ZORA_Long descriptor) {
  const sockaddr nowhere = {.sa_family = AF_UNSPEC, .sa_data = {}};
  static_cast<void>(connect(descriptor, &nowhere, sizeof nowhere));  // or it had no port
  char bytes[UDP_CHUNK_SIZE];
  sockaddr_in sender = {};
  socklen_t senderLength = sizeof sender;
  ssize_t length;
  while ((length = recvfrom(descriptor, bytes, sizeof bytes, MSG_DONTWAIT,
                            reinterpret_cast<sockaddr*>(&sender), &senderLength)) >= 0)
    traceThrownAway(trc1Scope, endpoint, sender, static_cast<ZORA_Long>(length));
}

// The descriptor stays: others know the pooled socket by it.
bool replaceSocket(ZORA_Long descriptor) {
  const int fresh = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fresh < 0) return false;
  const bool isReplaced = dup3(fresh, descriptor, O_CLOEXEC) >= 0;
  ZOR0_CloseTheSocket(fresh);
  return isReplaced;
}

}  // namespace

bool isStrict(const ipcSock& endpoint) {
  return _envStrictAnswers && endpoint._useFromSockPool != 0 &&
         endpoint.ipcTypeOfService() == SERVICE_UDP_CLIENT;
}

void forgetOldAnswers(const TRC1_Scope& trc1Scope, const ipcSock& endpoint, ZORA_Long descriptor) {
  const int errorBefore = errno;
  if (trc1Scope.on(TRC1_CLASS_DETAIL)) emptySocket(trc1Scope, endpoint, descriptor);
  // To empty the socket is not enough: a sender that has found it before may deliver to it after.
  if (!replaceSocket(descriptor)) emptySocket(trc1Scope, endpoint, descriptor);
  errno = errorBefore;
}

bool isFromPeer(const TRC1_Scope& trc1Scope, const ipcSock& endpoint, const sockaddr_in& sender,
                ZORA_Long length) {
  const sockaddr_in& peer = endpoint._sockAddress;
  // What is sent to no address in particular goes to this machine.
  const in_addr_t address =
      peer.sin_addr.s_addr != htonl(INADDR_ANY) ? peer.sin_addr.s_addr : htonl(INADDR_LOOPBACK);
  if (sender.sin_port == peer.sin_port && sender.sin_addr.s_addr == address) return true;
  traceThrownAway(trc1Scope, endpoint, sender, length);
  return false;
}

}  // namespace zordsock
