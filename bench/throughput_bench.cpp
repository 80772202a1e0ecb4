// How much goes through: datagrams that the server's half of the channel takes, and rows that are
// pushed to 100 subscribers; each against a program of bare system calls that does the same. What
// the server's half takes is measured with everything on one core too: there nothing hides the
// work.
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "bench/cores.h"
#include "bench/datagram_queue.h"
#include "bench/port_channel.h"
#include "bench/row_exchanges.h"
#include "bench/shared_count.h"
#include "bench/sides.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "suite/fields.h"
#include "tests/support/sockets.h"
#include "zordsock/zordsock.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int subscribers = 100;
// Datagrams under way to one socket, at most: with these a receive buffer of the default size has
// room to spare, so nothing is ever lost.
constexpr int window = 64;

std::string row() {
  const std::unique_ptr<char[]> bytes(buildRow());
  return std::string(bytes.get(), requestSize);
}

// ---- One receiver ------------------------------------------------------------------------------

[[noreturn]] void countDatagrams(int descriptor, SharedCount* count) {
  std::array<char, ZOR0_MAX_REQUEST_SIZE> datagram;
  for (;;)
    if (recvfrom(descriptor, datagram.data(), datagram.size(), 0, nullptr, nullptr) > 0)
      count->add();
}

[[noreturn]] void countFromQueue(int descriptor, SharedCount* count) {
  DatagramQueue queue;
  std::thread([&] { queue.receiveFrom(descriptor); }).detach();
  Datagram datagram;
  for (;;) {
    queue.take(&datagram);
    count->add();
  }
}

// What a program on the server's half of the channel does, and nothing else.
[[noreturn]] void countMessages(const std::function<void(int)>& tellPort, SharedCount* count) {
  setenv("ZORA_DCH_PORT", "0", 1);
  setenv("ZOR0_PRODUCT_SPEC", "/dev/null", 1);
  ipcSock server(SERVICE_SERVER, 0, 0);
  char* message = nullptr;
  ZORA_Long size = 0, addressLength = 0;
  std::array<char, IPC_ADDRESS_SIZE> address;
  std::array<char, IPC_NAME_SIZE> name;
  unsigned int connection = 0;
  const auto take = [&] {
    server.ipc_get_data(&message, &size, address.data(), &addressLength, name.data(), &connection);
  };
  take();  // the notice that it is ready
  tellPort(server.sockPortUDP());
  for (;;) {
    take();
    count->add();
  }
}

// Sends as fast as the receiver's count follows.
std::chrono::nanoseconds sendTo(const sockaddr_in& receiver, const SharedCount& received,
                                int datagrams) {
  const DatagramSocket sender;
  const std::string bytes = row();
  const std::uint64_t before = received.value();
  const auto start = Clock::now();
  for (std::uint64_t sent = 0; sent < static_cast<std::uint64_t>(datagrams); ++sent) {
    if (sent >= window) received.waitFor(before + sent - window + 1);
    sender.sendTo(receiver, bytes);
  }
  received.waitFor(before + static_cast<std::uint64_t>(datagrams));
  return Clock::now() - start;
}

// ---- 100 subscribers ---------------------------------------------------------------------------

class Subscribers {
 public:
  Subscribers() : _sockets(subscribers) {}

  const std::vector<DatagramSocket>& sockets() const { return _sockets; }

  // Counts what arrives, in a process of its own.
  void startCounting() {
    _process.emplace([this] { count(); });
  }

  // `publish` sends that many rows to each.
  std::chrono::nanoseconds run(int deliveries, const std::function<void(int rows)>& publish) {
    constexpr int rowsAtOnce = window / 2;
    constexpr std::uint64_t deliveriesAtOnce = rowsAtOnce * subscribers;
    const std::uint64_t end = _received.value() + static_cast<std::uint64_t>(deliveries);
    const auto start = Clock::now();
    for (std::uint64_t sent = _received.value(); sent < end; sent += deliveriesAtOnce) {
      _received.waitFor(sent - std::min(sent, deliveriesAtOnce));
      publish(rowsAtOnce);
    }
    _received.waitFor(end);
    return Clock::now() - start;
  }

 private:
  [[noreturn]] void count() {
    const int events = epoll_create1(EPOLL_CLOEXEC);
    for (const DatagramSocket& socket : _sockets) {
      epoll_event event{};
      event.events = EPOLLIN;
      event.data.fd = socket.descriptor();
      epoll_ctl(events, EPOLL_CTL_ADD, socket.descriptor(), &event);
    }
    std::array<epoll_event, subscribers> ready;
    std::array<char, 8192> datagram;
    for (;;) {
      const int count = epoll_wait(events, ready.data(), subscribers, -1);
      for (int i = 0; i < count; ++i)
        while (recv(ready[static_cast<std::size_t>(i)].data.fd, datagram.data(), datagram.size(),
                    MSG_DONTWAIT) > 0)
          _received.add();
    }
  }

  std::vector<DatagramSocket> _sockets;
  SharedCount _received;
  std::optional<Worker> _process;
};

}  // namespace

int main(int argc, char** argv) {
  const DatagramSocket bareReceiver, queueReceiver;
  SharedCount bareCount, queueCount, serverCount;
  const Worker bareCounting([&] { countDatagrams(bareReceiver.descriptor(), &bareCount); });
  const Worker queueCounting([&] { countFromQueue(queueReceiver.descriptor(), &queueCount); });
  std::optional<Worker> serverCounting;
  const sockaddr_in serverHalf = loopbackAddress(startOnPort(
      &serverCounting, [&](const auto& tellPort) { countMessages(tellPort, &serverCount); }));

  const DatagramSocket coreQueueReceiver;
  SharedCount coreQueueCount, coreServerCount;
  std::optional<Worker> coreQueueCounting, coreServerCounting;
  sockaddr_in coreServerHalf;
  {
    const OnCore oneCore(answeringCore);
    coreQueueCounting.emplace(
        [&] { countFromQueue(coreQueueReceiver.descriptor(), &coreQueueCount); });
    coreServerHalf = loopbackAddress(startOnPort(&coreServerCounting, [&](const auto& tellPort) {
      countMessages(tellPort, &coreServerCount);
    }));
  }
  const auto sendOnOneCore = [](const sockaddr_in& receiver, const SharedCount& received,
                                int datagrams) {
    const OnCore oneCore(answeringCore);
    return sendTo(receiver, received, datagrams);
  };

  // A server of its own: the rows of the providers above are pushed to nobody.
  const dch::testkit::ServerProcess pushServer;
  ExchangeClient provider([&] { return sendRowsToServer(pushServer.port(), "host"); });
  Subscribers bareSubscribers, serverSubscribers;
  provider.run(1);  // it is on line
  for (const DatagramSocket& socket : serverSubscribers.sockets())
    socket.sendTo(loopbackAddress(pushServer.port()),
                  dch::testkit::subscribeMessage("BENCH", "group"));
  provider.run(1);  // the server has taken the subscriptions by now
  bareSubscribers.startCounting();
  serverSubscribers.startCounting();
  const DatagramSocket sender;
  const std::string bytes = row();
  const auto pushBare = [&](int rows) {
    for (int row = 0; row < rows; ++row)
      for (const DatagramSocket& socket : bareSubscribers.sockets())
        sender.sendTo(socket.address(), bytes);
  };

  constexpr int datagramsPerTurn = 10'000;
  constexpr int deliveriesPerTurn = 320 * subscribers;  // a multiple of what is sent at once
  Medians medians = runSides(
      argc, argv,
      {{"datagrams, bare", datagramsPerTurn,
        [&](int datagrams) { return sendTo(bareReceiver.address(), bareCount, datagrams); }},
       {"datagrams, bare queue", datagramsPerTurn,
        [&](int datagrams) { return sendTo(queueReceiver.address(), queueCount, datagrams); }},
       {"datagrams, server half", datagramsPerTurn,
        [&](int datagrams) { return sendTo(serverHalf, serverCount, datagrams); }},
       {"datagrams on one core, bare queue", datagramsPerTurn,
        [&](int datagrams) {
          return sendOnOneCore(coreQueueReceiver.address(), coreQueueCount, datagrams);
        }},
       {"datagrams on one core, server half", datagramsPerTurn,
        [&](int datagrams) { return sendOnOneCore(coreServerHalf, coreServerCount, datagrams); }},
       {"push to 100, bare", deliveriesPerTurn,
        [&](int deliveries) { return bareSubscribers.run(deliveries, pushBare); }},
       {"push to 100, zordchd", deliveriesPerTurn, [&](int deliveries) {
          return serverSubscribers.run(deliveries, [&](int rows) { provider.run(rows); });
        }}});
  const auto perSecond = [&](const char* side) { return 1e9 / medians[side]; };
  printFigure("datagrams/s, server half", perSecond("datagrams, server half"));
  printFigure("datagrams/s, server half / bare",
              medians["datagrams, bare"] / medians["datagrams, server half"]);
  printFigure("datagrams/s, bare with a queue / bare",
              medians["datagrams, bare"] / medians["datagrams, bare queue"]);
  printFigure(
      "datagrams/s on one core, server half / bare with a queue",
      medians["datagrams on one core, bare queue"] / medians["datagrams on one core, server half"]);
  printFigure("rows/s pushed to 100, zordchd", perSecond("push to 100, zordchd"));
  printFigure("rows/s pushed to 100, zordchd / bare",
              medians["push to 100, bare"] / medians["push to 100, zordchd"]);
}
