#include "bench/echo_peer.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstdlib>
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

EchoPeer::EchoPeer() : _process([this] { answerForever(_socket.descriptor()); }) {}

void EchoPeer::becomeDch() const {
  setenv("ZORA_DCH_ADDR", "127.0.0.1", 1);
  setenv("ZORA_DCH_PORT", std::to_string(ntohs(address().sin_port)).c_str(), 1);
}
