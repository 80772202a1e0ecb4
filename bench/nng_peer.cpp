#include <nng/nng.h>
#include <nng/protocol/reqrep0/rep.h>
#include <nng/protocol/reqrep0/req.h>

#include <array>
#include <stdexcept>

#include "bench/messaging_peers.h"
#include "bench/port_channel.h"

namespace {

void require(int result) {
  if (result != 0) throw std::runtime_error(nng_strerror(result));
}

}  // namespace

NngPeer::NngPeer() {
  _port = startOnPort(&_process, [](const auto& tellPort) {
    nng_socket socket;
    nng_listener listener;
    require(nng_rep0_open(&socket));
    require(nng_listen(socket, "tcp://127.0.0.1:0", &listener, 0));
    int port = 0;
    require(nng_listener_get_int(listener, NNG_OPT_TCP_BOUND_PORT, &port));
    tellPort(port);
    std::array<char, requestSize> message;
    for (;;) {
      std::size_t size = message.size();
      require(nng_recv(socket, message.data(), &size, 0));
      require(nng_send(socket, message.data(), answerSize, 0));
    }
  });
}

Exchange NngPeer::connect() const {
  nng_socket socket;
  require(nng_req0_open(&socket));
  require(nng_dial(socket, ("tcp://127.0.0.1:" + std::to_string(_port)).c_str(), nullptr, 0));
  return {[] { delete[] buildRow(); },
          [socket] {
            std::array<char, requestSize> message{};
            require(nng_send(socket, message.data(), message.size(), 0));
            std::size_t size = message.size();
            require(nng_recv(socket, message.data(), &size, 0));
            return size == answerSize;
          }};
}
