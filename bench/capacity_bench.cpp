// What one server carries: the processor time that a row takes of zordchd, when rows come as fast
// as 8 providers can send them and when each of them sends a hundred a second; and how many rows
// that come at the same moment are all acknowledged.
//   capacity_bench [--quick]

#include <array>
#include <ctime>
#include <list>
#include <stdexcept>
#include <string>
#include <thread>

#include "bench/row_exchanges.h"
#include "bench/sides.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "tests/support/sockets.h"

namespace {

using dch::testkit::ServerProcess;

constexpr int providers = 8;
constexpr int mostRowsAtOnce = 16'000;
constexpr std::size_t valueSize = 80;  // makes the row as long as those of the other benchmarks

double cpuMicroseconds(pid_t process) {
  clockid_t clock;
  timespec time;
  if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0)
    throw std::runtime_error("the processor time of zordchd cannot be read");
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

// The server's processor time for a row of theirs; each pauses before each of its rows.
double costOfRow(std::chrono::milliseconds pause, int rowsOfEach) {
  const ServerProcess server;
  std::list<ExchangeClient> clients;
  for (int i = 0; i < providers; ++i)
    clients.emplace_back([&] {
      Exchange exchange = sendRowsToServer(server.port(), "host" + std::to_string(i));
      exchange.prepare = [prepare = exchange.prepare, pause] {
        std::this_thread::sleep_for(pause);
        prepare();
      };
      return exchange;
    });
  for (ExchangeClient& client : clients) client.run(1);  // everybody is on line
  const double before = cpuMicroseconds(server.processId());
  for (ExchangeClient& client : clients) client.start(rowsOfEach);
  for (ExchangeClient& client : clients) client.finish();
  return (cpuMicroseconds(server.processId()) - before) / (providers * rowsOfEach);
}

// The row of a source that is on line now.
std::string rowOfNewSource(int port) {
  const ZORA_Long handle = goOnLine(port, "appl:BENCH,BEN;group:group;attr:attr,D,96;", "host");
  return dch::testkit::dataMessage(handle, {{"attr", 'D', std::string(valueSize, 'x')}});
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
  printFigure("processor time of zordchd for a row at full rate, us",
              costOfRow(std::chrono::milliseconds(0), quick ? 4000 : 40'000));
  printFigure("processor time of zordchd for a row, 100 a second from each of 8 providers, us",
              costOfRow(std::chrono::milliseconds(10), quick ? 200 : 1000));
  printFigure("rows at the same moment, all acknowledged", rowsAtOnce(quick ? 3 : 20));
}
