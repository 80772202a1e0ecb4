// What a row costs as there is more of something: sources on line, subscriptions to other groups,
// subscribers of its own group, attributes in it, connections. Each is measured in turns with bare
// round trips. Everything is on one core, where nothing hides what is computed.
// Prints lines "CURVE,COUNT,COST" (COST is the median, over bare).
//   scaling_bench [TURNS]: 25 turns of each side at each point
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/cores.h"
#include "bench/descriptors.h"
#include "bench/echo_peer.h"
#include "bench/process_usage.h"
#include "bench/row_exchanges.h"
#include "bench/sides.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "tests/support/sockets.h"
#include "zordchcl/zordchcl.h"

namespace {

using dch::testkit::ServerProcess;
using dch::testkit::TcpClient;
using dch::testkit::UdpClient;

constexpr int tripsPerTurn = 200;
constexpr int maximumAttributes = 60;

int turns = 25;

void printPoint(const char* curve, int count, ExchangeClient* bare, ExchangeClient* client) {
  std::vector<double> bareTimes, times;
  for (int turn = 0; turn < turns; ++turn) {
    bareTimes.push_back(static_cast<double>(bare->run(tripsPerTurn).count()));
    times.push_back(static_cast<double>(client->run(tripsPerTurn).count()));
  }
  std::printf("%s,%d,%.3f\n", curve, count, median(times) / median(bareTimes));
  std::fflush(stdout);
}

// Brings sources on line that send nothing.
void addSources(UdpClient* client, int first, int last) {
  for (int i = first; i < last; ++i) {
    const auto answer = dch::testkit::onlineAnswerOf(
        client->ask(dch::testkit::onlineMessage("BENCH", "group", "source" + std::to_string(i))));
    if (!answer || answer->status != 0) throw std::runtime_error("a source cannot go on line");
  }
}

void measureSources(ExchangeClient* bare) {
  const ServerProcess server;
  ExchangeClient provider([&] { return sendRowsToServer(server.port(), "host"); });
  provider.run(1);
  UdpClient client(server.port());
  const long before = ownResidentBytes(server.processId());
  int online = 0;
  for (const int count : {10, 100, 1000, 10'000}) {
    addSources(&client, online, count);
    online = count;
    printPoint("sources on line", count, bare, &provider);
  }
  printFigure("memory of zordchd per source on line, bytes",
              static_cast<double>(ownResidentBytes(server.processId()) - before) / online);
}

void measureSubscriptions(ExchangeClient* bare) {
  const ServerProcess server;
  ExchangeClient provider([&] { return sendRowsToServer(server.port(), "host"); });
  provider.run(1);
  UdpClient client(server.port());
  const long before = ownResidentBytes(server.processId());
  int subscribed = 0;
  for (const int count : {1, 10, 100, 1000, 10'000}) {
    for (; subscribed < count; ++subscribed) {
      client.send(dch::testkit::subscribeMessage("BENCH", "group" + std::to_string(subscribed)));
      // Now and then the server has to catch up, so that no subscription is lost.
      if (subscribed % 50 == 0) provider.run(1);
    }
    printPoint("subscriptions to other groups", count, bare, &provider);
  }
  printFigure("memory of zordchd per subscription, bytes",
              static_cast<double>(ownResidentBytes(server.processId()) - before) / subscribed);
}

// Nobody reads: what the sockets cannot take is dropped by the system, after it was sent.
void measureSubscribers(ExchangeClient* bare) {
  const ServerProcess server;
  ExchangeClient provider([&] { return sendRowsToServer(server.port(), "host"); });
  provider.run(1);
  std::vector<DatagramSocket> subscribers;
  const std::string subscription = dch::testkit::subscribeMessage("BENCH", "group");
  for (const int count : {1, 3, 10, 30, 100, 300, 1000}) {
    while (subscribers.size() < static_cast<std::size_t>(count)) {
      subscribers.emplace_back().sendTo(loopbackAddress(server.port()), subscription);
      provider.run(1);
    }
    printPoint("subscribers of the row", count, bare, &provider);
  }
}

Exchange sendRowOf(int port, int attributes) {
  std::string registration = "appl:BENCH,BEN;group:group;";
  for (int i = 0; i < maximumAttributes; ++i)
    registration += "attr:attribute" + std::to_string(i) + ",N,4;";
  const ZORA_Long handle = goOnLine(port, registration, "host");
  return {[] {},
          [=] {
            char* row = nullptr;
            ZORA_Long size = 0, result = 1;
            for (ZORA_Long i = 0; i < attributes; ++i)
              dp_formatData(&result, &row, &size, ("attribute" + std::to_string(i)).c_str(), &i,
                            sizeof i, 'N');
            constexpr short sampleType = 17;
            return dp_data(&result, handle, sampleType, &row) == 0 && result == 0;
          }};
}

void measureAttributes(ExchangeClient* bare) {
  const ServerProcess server;
  for (const int count : {1, 2, 5, 10, 20, 40, maximumAttributes}) {
    ExchangeClient provider([&] { return sendRowOf(server.port(), count); });
    printPoint("attributes of the row", count, bare, &provider);
  }
}

// Clients of a stream connection each, which have made a request and stay.
void measureConnections(ExchangeClient* bare) {
  const ServerProcess server;
  ExchangeClient provider([&] { return sendRowsToServer(server.port(), "host"); });
  provider.run(1);
  std::vector<TcpClient> clients;
  const std::string row = rowMessage(1);
  const long before = ownResidentBytes(server.processId());
  for (const int count : {1, 10, 100, 1000}) {
    while (clients.size() < static_cast<std::size_t>(count))
      if (clients.emplace_back(server.port()).ask(row).size() != answerSize)
        throw std::runtime_error("a connection is not served");
    printPoint("connections", count, bare, &provider);
  }
  printFigure("memory of zordchd per connection, bytes",
              static_cast<double>(ownResidentBytes(server.processId()) - before) /
                  static_cast<double>(clients.size()));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) turns = std::atoi(argv[1]);
  if (turns <= 0) {
    std::fprintf(stderr, "usage: scaling_bench [TURNS]\n");
    return 64;
  }
  runOnCore(answeringCore);
  const EchoPeer echo;
  echo.becomeDch();
  ExchangeClient bare([&] { return exchangeBare(echo.address()); });
  allowManyDescriptors();  // a socket for each subscriber
  measureSources(&bare);
  measureSubscriptions(&bare);
  measureSubscribers(&bare);
  measureAttributes(&bare);
  measureConnections(&bare);
}
