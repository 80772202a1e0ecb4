#include "bench/echo_peer.h"

#include <arpa/inet.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

#include "zordchcl/messages.h"

namespace {

[[noreturn]] void answerForever(int socket) {
  char answer[64];
  DCH_MessageBuilder builder(answer, sizeof answer);
  builder.add(DCH_status, ZORA_Long{0});
  const auto answerSize = static_cast<std::size_t>(builder.length());
  char request[8192];
  for (;;) {
    sockaddr_in sender;
    socklen_t senderLength = sizeof sender;
    auto* const senderAddress = reinterpret_cast<sockaddr*>(&sender);
    if (recvfrom(socket, request, sizeof request, 0, senderAddress, &senderLength) > 0)
      sendto(socket, answer, answerSize, 0, senderAddress, sizeof sender);
  }
}

}  // namespace

EchoPeer::EchoPeer() {
  const int peer = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  _address.sin_family = AF_INET;
  _address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof _address;
  auto* const address = reinterpret_cast<sockaddr*>(&_address);
  if (peer < 0 || bind(peer, address, length) != 0 || getsockname(peer, address, &length) != 0)
    throw std::runtime_error("no socket for the echo peer");
  _child = fork();
  if (_child < 0) throw std::runtime_error("no process for the echo peer");
  if (_child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    answerForever(peer);
  }
  close(peer);
}

EchoPeer::~EchoPeer() {
  kill(_child, SIGKILL);
  waitpid(_child, nullptr, 0);
}
