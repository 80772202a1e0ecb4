#include <zmq.h>

#include <array>
#include <cstdlib>
#include <stdexcept>

#include "bench/messaging_peers.h"
#include "bench/port_channel.h"

namespace {

// Contexts live as long as their process.
void* openSocket(int type) {
  void* const socket = zmq_socket(zmq_ctx_new(), type);
  if (socket == nullptr) throw std::runtime_error(zmq_strerror(zmq_errno()));
  return socket;
}

void require(int result) {
  if (result < 0) throw std::runtime_error(zmq_strerror(zmq_errno()));
}

int boundPort(void* socket) {
  char endpoint[64];
  std::size_t size = sizeof endpoint;
  require(zmq_getsockopt(socket, ZMQ_LAST_ENDPOINT, endpoint, &size));
  return std::atoi(std::string(endpoint).substr(std::string("tcp://127.0.0.1:").size()).c_str());
}

}  // namespace

ZeroMqPeer::ZeroMqPeer() {
  _port = startOnPort(&_process, [](const auto& tellPort) {
    void* const socket = openSocket(ZMQ_REP);
    require(zmq_bind(socket, "tcp://127.0.0.1:*"));
    tellPort(boundPort(socket));
    std::array<char, requestSize> message;
    for (;;) {
      require(zmq_recv(socket, message.data(), message.size(), 0));
      require(zmq_send(socket, message.data(), answerSize, 0));
    }
  });
}

Exchange ZeroMqPeer::connect() const {
  void* const socket = openSocket(ZMQ_REQ);
  require(zmq_connect(socket, ("tcp://127.0.0.1:" + std::to_string(_port)).c_str()));
  return {[] { delete[] buildRow(); },
          [socket] {
            std::array<char, requestSize> message{};
            require(zmq_send(socket, message.data(), message.size(), 0));
            return zmq_recv(socket, message.data(), message.size(), 0) == answerSize;
          }};
}
