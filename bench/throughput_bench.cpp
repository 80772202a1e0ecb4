// How much goes through: rows that are pushed to 100 subscribers, and datagrams that the library's
// half of a server takes with everything on one core, where nothing hides the work; each against a
// program of bare system calls that does the same.
#include <sys/socket.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include "bench/cores.h"
#include "bench/datagram_queue.h"
#include "bench/port_channel.h"
#include "bench/row_exchanges.h"
#include "bench/sides.h"
#include "bench/subscribers.h"
#include "dch/testkit/server_process.h"
#include "zordsock/zordsock.h"

namespace {

using Clock = std::chrono::steady_clock;

std::string row() {
  const std::unique_ptr<char[]> bytes(buildRow());
  return std::string(bytes.get(), requestSize);
}

// ---- One receiver ------------------------------------------------------------------------------

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
  const OnCore oneCore(answeringCore);
  const DatagramSocket sender;
  const std::string bytes = row();
  // With these a receive buffer of the default size has room to spare, so nothing is ever lost.
  constexpr std::uint64_t mostUnderWay = 64;
  const std::uint64_t before = received.value();
  const auto start = Clock::now();
  for (std::uint64_t sent = 0; sent < static_cast<std::uint64_t>(datagrams); ++sent) {
    if (sent >= mostUnderWay) received.waitFor(before + sent - mostUnderWay + 1);
    sender.sendTo(receiver, bytes);
  }
  received.waitFor(before + static_cast<std::uint64_t>(datagrams));
  return Clock::now() - start;
}

}  // namespace

int main(int argc, char** argv) {
  const DatagramSocket queueReceiver;
  SharedCount queueCount, serverCount;
  std::optional<Worker> queueCounting, serverCounting;
  sockaddr_in serverHalf;
  {
    const OnCore oneCore(answeringCore);
    queueCounting.emplace([&] { countFromQueue(queueReceiver.descriptor(), &queueCount); });
    serverHalf = loopbackAddress(startOnPort(
        &serverCounting, [&](const auto& tellPort) { countMessages(tellPort, &serverCount); }));
  }

  const dch::testkit::ServerProcess server;
  ExchangeClient provider([&] { return sendRowsToServer(server.port(), "host"); });
  constexpr int subscribers = 100;
  Subscribers bareSubscribers(subscribers), serverSubscribers(subscribers);
  provider.run(1);  // it is on line
  serverSubscribers.subscribe(server.port(), "BENCH");
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

  constexpr int datagramsPerTurn = 4'000;
  constexpr int deliveriesPerTurn = 96 * subscribers;  // a multiple of what is sent at once
  Medians medians = runSides(
      argc, argv,
      {{"datagrams on one core, bare queue", datagramsPerTurn,
        [&](int datagrams) { return sendTo(queueReceiver.address(), queueCount, datagrams); }},
       {"datagrams on one core, server half", datagramsPerTurn,
        [&](int datagrams) { return sendTo(serverHalf, serverCount, datagrams); }},
       {"push to 100, bare", deliveriesPerTurn,
        [&](int deliveries) { return bareSubscribers.run(deliveries, pushBare); }},
       {"push to 100, zordchd", deliveriesPerTurn, [&](int deliveries) {
          return serverSubscribers.run(deliveries, [&](int rows) { provider.run(rows); });
        }}});
  printFigure(
      "datagrams/s on one core, server half / bare with a queue",
      medians["datagrams on one core, bare queue"] / medians["datagrams on one core, server half"]);
  printFigure("rows/s pushed to 100, zordchd", 1e9 / medians["push to 100, zordchd"]);
  printFigure("rows/s pushed to 100, zordchd / bare",
              medians["push to 100, bare"] / medians["push to 100, zordchd"]);
}
