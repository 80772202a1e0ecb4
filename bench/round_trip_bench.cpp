// What a request costs: the round trip of dp_data, of a whole row, of dp_data through zordchd, of
// the same exchange over messaging libraries, and of bare system calls; with both ends on one core,
// which shows what each of them computes, and on two, which is what happens between machines.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <list>
#include <stdexcept>
#include <string>

#include "bench/cores.h"
#include "bench/echo_peer.h"
#include "bench/messaging_peers.h"
#include "bench/row_exchanges.h"
#include "bench/sides.h"
#include "dch/testkit/server_process.h"

namespace {

// The clients of all comparisons and the sides that they make.
class Clients {
 public:
  // Starts one client on each core.
  void add(const std::string& name, const std::function<Exchange()>& connect) {
    add("one core, " + name, answeringCore, connect);
    add("two cores, " + name, askingCore, connect);
  }
  // Starts a client on that core.
  void add(const std::string& name, int core, const std::function<Exchange()>& connect) {
    ExchangeClient& client = _clients.emplace_back([&] {
      runOnCore(core);
      return connect();
    });
    constexpr int tripsPerTurn = 150;
    _sides.push_back(
        {name, tripsPerTurn, [&client](int roundTrips) { return client.run(roundTrips); }});
  }

  const std::vector<Side>& sides() const { return _sides; }

 private:
  std::list<ExchangeClient> _clients;
  std::vector<Side> _sides;
};

// dp_data with every trace class on, into a file of this process in memory. Each row starts it
// anew: all of them together would be gigabytes.
Exchange sendTracedRows() {
  const int file = memfd_create("trace", MFD_CLOEXEC);
  if (file < 0) throw std::runtime_error("no file in memory for the trace");
  setenv("ZORA_TRACE", "0xff", 1);
  setenv("ZORA_TRACE_FILE", ("/proc/self/fd/" + std::to_string(file)).c_str(), 1);
  Exchange exchange = sendRows(1);
  exchange.prepare = [prepare = exchange.prepare, file] {
    prepare();
    if (ftruncate(file, 0) != 0) throw std::runtime_error("the trace cannot be emptied");
  };
  return exchange;
}

void printFigures(const std::string& cores, const Medians& medians) {
  const auto time = [&](const char* name) { return medians.at(cores + ", " + name); };
  const auto print = [&](const char* name, double value) {
    printFigure("round trip on " + cores + ", " + name, value);
  };
  print("bare, us", time("bare") / 1000);
  print("dp_data / bare", time("dp_data") / time("bare"));
  print("row of 8 attributes / bare", time("row of 8") / time("bare"));
  print("zordchd / bare", time("zordchd") / time("bare"));
  print("zordchd / ZeroMQ", time("zordchd") / time("ZeroMQ"));
  print("zordchd / nng", time("zordchd") / time("nng"));
  print("zordchd / NATS", time("zordchd") / time("NATS"));
}

}  // namespace

int main(int argc, char** argv) {
  runOnCore(answeringCore);
  const EchoPeer echo;
  echo.becomeDch();
  const dch::testkit::ServerProcess server;
  const ZeroMqPeer zeroMq;
  const NngPeer nng;
  const NatsPeer nats;
  Clients clients;
  clients.add("bare", [&] { return exchangeBare(echo.address()); });
  clients.add("dp_data", [] { return sendRows(1); });
  clients.add("row of 8", buildAndSendRows);
  clients.add("one core, traced", answeringCore, sendTracedRows);
  clients.add("zordchd", [&] { return sendRowsToServer(server.port(), "host"); });
  clients.add("ZeroMQ", [&] { return zeroMq.connect(); });
  clients.add("nng", [&] { return nng.connect(); });
  clients.add("NATS", [&] { return nats.connect(); });
  const Medians medians = runSides(argc, argv, clients.sides());
  printFigures("two cores", medians);
  printFigures("one core", medians);
  printFigure("round trip on one core, traced at 0xff / bare",
              medians.at("one core, traced") / medians.at("one core, bare"));
}
