// What it costs to share the pool: 16 threads of a process that has 4 sockets against 4 threads
// that have as many. All of them send rows to the same peer; the latencies include the wait for a
// socket. The same again with bare system calls and a bare pool, which is what sharing costs at
// least.
#include <array>
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "bench/datagram_sockets.h"
#include "bench/echo_peer.h"
#include "bench/latencies.h"
#include "bench/row_exchanges.h"
#include "bench/shared_memory.h"
#include "bench/sides.h"

namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<float, std::micro>;

constexpr int sharingThreads = 16;
constexpr int sockets = 4;
constexpr int requestsPerTurn = 4000;  // of all threads together

using LatenciesOfThreads = std::array<Latencies, sharingThreads>;

class BarePool {
 public:
  bool roundTrip(const sockaddr_in& peer) {
    const DatagramSocket* const socket = take();
    const bool good = roundTripBare(socket->descriptor(), peer);
    giveBack(socket);
    return good;
  }

 private:
  const DatagramSocket* take() {
    std::unique_lock lock(_mutex);
    _freed.wait(lock, [this] { return !_free.empty(); });
    const DatagramSocket* const socket = _free.back();
    _free.pop_back();
    return socket;
  }
  void giveBack(const DatagramSocket* socket) {
    {
      const std::lock_guard lock(_mutex);
      _free.push_back(socket);
    }
    _freed.notify_one();
  }

  const std::array<DatagramSocket, sockets> _sockets;
  std::mutex _mutex;
  std::condition_variable _freed;
  std::vector<const DatagramSocket*> _free{&_sockets[0], &_sockets[1], &_sockets[2], &_sockets[3]};
};

void runExchanges(int count, const Exchange& exchange, Latencies* latencies) {
  for (int i = 0; i < count; ++i) {
    exchange.prepare();
    const auto start = Clock::now();
    if (!exchange.roundTrip()) std::_Exit(1);
    latencies->add(Microseconds(Clock::now() - start).count());
  }
}

// A client one round trip of which is a turn of all its threads, each of which makes an exchange of
// its own.
std::unique_ptr<ExchangeClient> startThreads(int threads, LatenciesOfThreads* latencies,
                                             const std::function<Exchange()>& exchangeOfThread) {
  return std::make_unique<ExchangeClient>([&]() -> Exchange {
    setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", std::to_string(sockets).c_str(), 1);
    return {[] {},
            [=] {
              std::vector<std::jthread> running;
              for (int i = 0; i < threads; ++i)
                running.emplace_back(runExchanges, requestsPerTurn / threads, exchangeOfThread(),
                                     &(*latencies)[static_cast<std::size_t>(i)]);
              return true;
            }};
  });
}

Side sideOf(const char* name, ExchangeClient& client) {
  return {name, requestsPerTurn, [&client](int) { return client.run(1); }};
}

// How much longer the slowest hundredth of the slowest thread takes than half of all requests do.
float worstSpread(const LatenciesOfThreads& latenciesOfThreads) {
  LatencySummary all;
  float worst = 0;
  for (const Latencies& latencies : latenciesOfThreads) {
    LatencySummary thread;
    thread.add(latencies);
    worst = std::max(worst, thread.quantile(0.99));
    all.add(latencies);
  }
  return worst / all.quantile(0.5);
}

}  // namespace

int main(int argc, char** argv) {
  const EchoPeer echo;
  echo.becomeDch();
  const auto library = [] { return sendRows(1); };
  const auto withBarePool = [&echo] {
    return [&echo, pool = std::make_shared<BarePool>()]() -> Exchange {
      return {[] { delete[] buildRow(); }, [=, &echo] { return pool->roundTrip(echo.address()); }};
    };
  };
  const SharedMemory<LatenciesOfThreads> unused, shared;
  const auto own4 = startThreads(sockets, &*unused, library);
  const auto shared4 = startThreads(sharingThreads, &*shared, library);
  const auto bareOwn4 = startThreads(sockets, &*unused, withBarePool());
  const auto bareShared4 = startThreads(sharingThreads, &*unused, withBarePool());
  Medians medians =
      runSides(argc, argv,
               {sideOf("4 threads", *own4), sideOf("16 threads", *shared4),
                sideOf("4 threads, bare", *bareOwn4), sideOf("16 threads, bare", *bareShared4)});
  printFigure("requests/s, 16 threads on 4 sockets / 4 threads",
              medians["4 threads"] / medians["16 threads"]);
  printFigure("requests/s, 16 threads on a bare pool of 4 sockets / 4 threads",
              medians["4 threads, bare"] / medians["16 threads, bare"]);
  printFigure("p99 of the slowest of the 16 threads / p50 of all", worstSpread(*shared));
}
