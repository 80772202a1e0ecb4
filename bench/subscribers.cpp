#include "bench/subscribers.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>

#include "dch/testkit/messages.h"

void Subscribers::subscribe(int port, const std::string& application) const {
  const std::string request = dch::testkit::subscribeMessage(application, "group");
  for (const DatagramSocket& socket : _sockets) socket.sendTo(port, request);
}

std::chrono::nanoseconds Subscribers::run(int deliveries, const std::function<void(int)>& publish) {
  constexpr int rowsAtOnce = 32;  // a receive buffer of the default size has room to spare
  const std::uint64_t deliveriesAtOnce = rowsAtOnce * _sockets.size();
  const std::uint64_t end = received() + static_cast<std::uint64_t>(deliveries);
  const auto start = std::chrono::steady_clock::now();
  for (std::uint64_t sent = received(); sent < end; sent += deliveriesAtOnce) {
    _received.waitFor(sent - std::min(sent, deliveriesAtOnce));
    publish(rowsAtOnce);
  }
  _received.waitFor(end);
  return std::chrono::steady_clock::now() - start;
}

void Subscribers::count() {
  const int events = epoll_create1(EPOLL_CLOEXEC);
  for (const DatagramSocket& socket : _sockets) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = socket.descriptor();
    epoll_ctl(events, EPOLL_CTL_ADD, socket.descriptor(), &event);
  }
  std::array<epoll_event, 128> ready;
  std::array<char, 8192> datagram;
  for (;;) {
    const int count = epoll_wait(events, ready.data(), ready.size(), -1);
    for (int i = 0; i < count; ++i)
      while (recv(ready[static_cast<std::size_t>(i)].data.fd, datagram.data(), datagram.size(),
                  MSG_DONTWAIT) > 0)
        _received.add();
  }
}
