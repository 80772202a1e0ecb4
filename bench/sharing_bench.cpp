// What it costs to share the pool: 16 threads of a process that has 4 sockets against 4 threads
// that have as many. All of them send rows to the same peer; the latencies include the wait for a
// socket. The same again with bare system calls and a bare pool, which is what sharing costs at
// least; and the 16 threads with everything on one core, where nothing hides the work.
//
// Rows are copies of one: dp_formatData takes a socket of the pool too, and then a row of the
// library would wait for two where a bare one waits for one.
#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "bench/cores.h"
#include "bench/echo_peer.h"
#include "bench/latencies.h"
#include "bench/row_exchanges.h"
#include "bench/shared_memory.h"
#include "bench/sides.h"
#include "tests/support/sockets.h"

namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<float, std::micro>;

constexpr int sharingThreads = 16;
constexpr int sockets = 4;
constexpr int requestsPerTurn = 2000;  // of all threads together

using LatenciesOfThreads = std::array<Latencies, sharingThreads>;

// A pool of the library's form: the lowest free socket, a wait with a limit, and whoever gives a
// socket back wakes one thread after it has released the lock.
class BarePool {
 public:
  bool roundTrip(const sockaddr_in& peer) {
    const std::size_t index = take();
    const bool good = roundTripBare(_sockets[index].descriptor(), peer);
    giveBack(index);
    return good;
  }

 private:
  std::size_t take() {
    std::unique_lock lock(_mutex);
    for (;;) {
      const auto free = std::find(_isInUse.begin(), _isInUse.end(), false);
      if (free != _isInUse.end()) {
        *free = true;
        return static_cast<std::size_t>(free - _isInUse.begin());
      }
      _freed.wait_until(lock, std::chrono::system_clock::now() + std::chrono::seconds(10));
    }
  }
  void giveBack(std::size_t index) {
    {
      const std::lock_guard lock(_mutex);
      _isInUse[index] = false;
    }
    _freed.notify_one();
  }

  const std::array<DatagramSocket, sockets> _sockets;
  std::array<bool, sockets> _isInUse{};
  std::mutex _mutex;
  std::condition_variable _freed;
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

Exchange copiedRows() {
  return sendRows(1, copyRow);
}

// For threads that share a pool.
std::function<Exchange()> withBarePool(const EchoPeer& echo) {
  return [&echo, pool = std::make_shared<BarePool>()]() -> Exchange {
    return {[] { delete[] copyRow(); }, [&echo, pool] { return pool->roundTrip(echo.address()); }};
  };
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
  const SharedMemory<LatenciesOfThreads> unused, shared;
  const auto own4 = startThreads(sockets, &*unused, copiedRows);
  const auto shared4 = startThreads(sharingThreads, &*shared, copiedRows);
  const auto bareOwn4 = startThreads(sockets, &*unused, withBarePool(echo));
  const auto bareShared4 = startThreads(sharingThreads, &*unused, withBarePool(echo));
  runOnCore(answeringCore);
  const EchoPeer coreEcho;
  coreEcho.becomeDch();
  const auto coreShared4 = startThreads(sharingThreads, &*unused, copiedRows);
  const auto coreBareShared4 = startThreads(sharingThreads, &*unused, withBarePool(coreEcho));
  Medians medians =
      runSides(argc, argv,
               {sideOf("4 threads", *own4), sideOf("16 threads", *shared4),
                sideOf("4 threads, bare", *bareOwn4), sideOf("16 threads, bare", *bareShared4),
                sideOf("16 threads on one core", *coreShared4),
                sideOf("16 threads on one core, bare", *coreBareShared4)});
  printFigure("requests/s, 16 threads on 4 sockets / 4 threads",
              medians["4 threads"] / medians["16 threads"]);
  printFigure("requests/s, 16 threads on a bare pool of 4 sockets / 4 threads",
              medians["4 threads, bare"] / medians["16 threads, bare"]);
  printFigure("requests/s on one core, 16 threads on 4 sockets / on a bare pool of 4",
              medians["16 threads on one core, bare"] / medians["16 threads on one core"]);
  printFigure("p99 of the slowest of the 16 threads / p50 of all", worstSpread(*shared));
}
