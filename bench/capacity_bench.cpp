// What one server carries: the processor time that a row takes of zordchd, when rows come as fast
// as 8 providers can send them and when each of them sends a hundred a second, in memory and in a
// file; and how many rows that come at the same moment are all acknowledged.
//   capacity_bench [--quick]

#include <array>
#include <list>
#include <string>

#include "bench/kept_state.h"
#include "bench/process_usage.h"
#include "bench/row_exchanges.h"
#include "bench/sides.h"
#include "dch/testkit/server_process.h"
#include "tests/support/sockets.h"

namespace {

using dch::testkit::ServerProcess;

constexpr int providers = 8;
constexpr int mostRowsAtOnce = 16'000;

// The server's processor time for a row of theirs; each pauses before each of its rows.
double costOfRow(const ServerProcess& server, std::chrono::milliseconds pause, int rowsOfEach) {
  std::list<ExchangeClient> clients;
  for (int i = 0; i < providers; ++i)
    clients.emplace_back([&] {
      return afterAPause(pause, sendRowsToServer(server.port(), "host" + std::to_string(i)));
    });
  for (ExchangeClient& client : clients) client.run(1);  // everybody is on line
  const double before = processorMicroseconds(server.processId());
  for (ExchangeClient& client : clients) client.start(rowsOfEach);
  for (ExchangeClient& client : clients) client.finish();
  return (processorMicroseconds(server.processId()) - before) / (providers * rowsOfEach);
}

// The row of a source that is on line now.
std::string rowOfNewSource(int port) {
  return rowMessage(goOnLine(port, registrationOf("BENCH"), "host"));
}

// Many clients send that many rows at once; whether all are acknowledged.
bool allAreAcknowledged(int rows, const std::string& row, const sockaddr_in& server) {
  // So many that the answers fit their sockets: those must not be what is lost.
  std::array<DatagramSocket, 64> clients;
  std::array<int, clients.size()> sent{};
  for (int i = 0; i < rows; ++i) {
    const std::size_t client = static_cast<std::size_t>(i) % clients.size();
    clients[client].sendTo(server, row);
    ++sent[client];
  }
  constexpr int silenceMilliseconds = 500;
  for (std::size_t client = 0; client < clients.size(); ++client)
    for (int i = 0; i < sent[client]; ++i) {
      const auto answer = clients[client].tryReceive(silenceMilliseconds);
      if (!answer || answer->size() != answerSize) return false;
    }
  return true;
}

// The largest of the numbers asked for, each a quarter more than the one before, of which all rows
// were acknowledged in each of the tries.
int rowsAtOnce(int tries) {
  const ServerProcess server;
  const std::string row = rowOfNewSource(server.port());
  int best = 0;
  for (int rows = 100; rows <= mostRowsAtOnce; rows += rows / 4) {
    for (int i = 0; i < tries; ++i)
      if (!allAreAcknowledged(rows, row, loopbackAddress(server.port()))) return best;
    best = rows;
  }
  return best;
}

}  // namespace

int main(int argc, char** argv) {
  const bool quick = isQuick(argc, argv);
  const KeptState state;
  const ServerProcess memory, process(state.serverArguments());
  constexpr std::chrono::milliseconds none(0), hundredASecond(10);
  const int many = quick ? 4000 : 40'000, few = quick ? 200 : 1000;
  const std::string cost = "processor time of zordchd for a row ";
  printFigure(cost + "at full rate, us", costOfRow(memory, none, many));
  printFigure(cost + "at full rate, process, us", costOfRow(process, none, many));
  printFigure(cost + "of 800 a second, us", costOfRow(memory, hundredASecond, few));
  printFigure(cost + "of 800 a second, process, us", costOfRow(process, hundredASecond, few));
  printFigure("rows at the same moment, all acknowledged", rowsAtOnce(quick ? 3 : 10));
}
