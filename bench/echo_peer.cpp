#include "bench/echo_peer.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

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
  _process.emplace([peer] { answerForever(peer); });
  close(peer);
}

void EchoPeer::becomeDch() const {
  setenv("ZORA_DCH_ADDR", "127.0.0.1", 1);
  setenv("ZORA_DCH_PORT", std::to_string(ntohs(_address.sin_port)).c_str(), 1);
}
