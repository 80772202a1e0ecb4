#include "bench/echo_peer.h"

#include <sys/socket.h>

#include <string>

#include "bench/row_exchanges.h"
#include "zordchcl/messages.h"

namespace {

std::string goodStatus() {
  char answer[64];
  DCH_MessageBuilder builder(answer, sizeof answer);
  builder.add(DCH_status, ZORA_Long{0});
  return std::string(answer, static_cast<std::size_t>(builder.length()));
}

void sendAnswer(int socket, const std::string& answer, const sockaddr_in& receiver) {
  sendto(socket, answer.data(), answer.size(), 0, reinterpret_cast<const sockaddr*>(&receiver),
         sizeof receiver);
}

[[noreturn]] void answerForever(int socket) {
  const std::string answer = goodStatus();
  char request[8192];
  for (;;) {
    sockaddr_in sender;
    socklen_t senderLength = sizeof sender;
    if (recvfrom(socket, request, sizeof request, 0, reinterpret_cast<sockaddr*>(&sender),
                 &senderLength) > 0)
      sendAnswer(socket, answer, sender);
  }
}

}  // namespace

EchoPeer::EchoPeer() : _process([this] { answerForever(_socket.descriptor()); }) {}

void EchoPeer::becomeDch() const {
  askServer(_socket.port());
}
