// How many rows are kept and acknowledged: by a server of bare system calls, which keeps none, by
// zordchd in memory and in a file, and by other servers that keep what they are given.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <stdexcept>
#include <string>

#include "bench/echo_peer.h"
#include "bench/kept_state.h"
#include "bench/providers.h"
#include "bench/row_exchanges.h"
#include "bench/sides.h"
#include "bench/storing_peers.h"
#include "dch/testkit/server_process.h"

namespace {

using dch::testkit::ServerProcess;

// A zordchd whose state is in a file.
class KeepingServer {
 public:
  explicit KeepingServer(const std::string& durability)
      : _state("durability = \"" + durability + "\"\n") {}

  int port() const { return _server.port(); }

 private:
  const KeptState _state;
  const ServerProcess _server{_state.serverArguments()};
};

constexpr int rowsPerTurn = 2'048;

// The sides of one number of providers, each with providers of its own.
class Comparison {
 public:
  explicit Comparison(int providers)
      : _name(std::to_string(providers) + " providers"), _providers(providers) {
    _bare.becomeDch();
    add("bare", [](int) { return sendRows(1); });
    addServer("memory", _memory.port());
    addServer("process", _process.port());
    addServer("power", _power.port());
    add("JetStream", [this](int) { return _jetStream.connect(); });
    add("Redis", [this](int) { return _redis.connect(); });
  }

  void addTo(std::vector<Side>* sides) {
    for (auto& [name, providers] : _sides)
      sides->push_back({_name + ", " + name, rowsPerTurn,
                        [&providers = providers](int rows) { return providers.run(rows); }});
  }

  void print(Medians& medians) const {
    const auto of = [&](const std::string& side) { return medians[_name + ", " + side]; };
    const std::string rows = "rows/s of " + _name + ", ";
    for (const char* side : {"bare", "JetStream", "Redis"})
      printFigure(rows + side, 1e9 / of(side));
    for (const char* side : {"memory", "process", "power"}) {
      printFigure(rows + "zordchd, " + side, 1e9 / of(side));
      for (const char* peer : {"bare", "JetStream", "Redis"})
        printFigure(rows + "zordchd, " + side + " / " + peer, of(peer) / of(side));
    }
  }

 private:
  void add(const std::string& name, const std::function<Exchange(int)>& connect) {
    _sides.emplace_back(std::piecewise_construct, std::forward_as_tuple(name),
                        std::forward_as_tuple(_providers, connect));
  }

  void addServer(const std::string& name, int port) {
    add(name,
        [port](int number) { return sendRowsToServer(port, "host" + std::to_string(number)); });
  }

  const std::string _name;
  const int _providers;
  const EchoPeer _bare;
  const ServerProcess _memory;
  const KeepingServer _process{"process"}, _power{"power"};
  const JetStreamPeer _jetStream;
  const RedisPeer _redis;
  std::list<std::pair<std::string, Providers>> _sides;
};

// What the disk itself allows: a page, written behind the last one, and a flush.
std::chrono::nanoseconds flush(int descriptor, int times) {
  static const std::array<char, 4096> page{};
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < times; ++i)
    if (write(descriptor, page.data(), page.size()) < 0 || fdatasync(descriptor) != 0)
      throw std::runtime_error("the disk cannot be flushed");
  return std::chrono::steady_clock::now() - start;
}

}  // namespace

int main(int argc, char** argv) {
  Comparison few(8), many(64);
  const TemporaryFile file("");
  const int descriptor = open(file.path().c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  std::vector<Side> sides;
  few.addTo(&sides);
  many.addTo(&sides);
  constexpr int flushesPerTurn = 100;
  sides.push_back({"flushes", flushesPerTurn, [=](int times) { return flush(descriptor, times); }});
  Medians medians = runSides(argc, argv, sides);
  few.print(medians);
  many.print(medians);
  printFigure("flushes/s of the disk", 1e9 / medians["flushes"]);
}
