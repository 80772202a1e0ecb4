// What it costs to share the pool: 16 threads of a process that has 4 sockets against 4 threads
// that have as many. All of them send rows to the same peer; the latencies include the wait for a
// socket.
#include <cstdlib>
#include <thread>
#include <vector>

#include "bench/echo_peer.h"
#include "bench/exchange_client.h"
#include "bench/latencies.h"
#include "bench/shared_memory.h"
#include "bench/sides.h"
#include "zordchcl/zordchcl.h"

namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<float, std::micro>;

constexpr int sharingThreads = 16;
constexpr int sockets = 4;
constexpr int requestsPerTurn = 4000;  // of all threads together

using LatenciesOfThreads = std::array<Latencies, sharingThreads>;

void sendRows(int rows, Latencies* latencies) {
  for (int i = 0; i < rows; ++i) {
    char* row = buildRow();
    ZORA_Long status = 1;
    constexpr short sampleType = 17;
    const auto start = Clock::now();
    if (dp_data(&status, 1, sampleType, &row) != 0 || status != 0) std::_Exit(1);
    latencies->add(Microseconds(Clock::now() - start).count());
  }
}

// One round trip of this exchange is a turn of all threads.
Exchange exchangeOf(int threads, LatenciesOfThreads* latencies) {
  setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", std::to_string(sockets).c_str(), 1);
  return {[] {},
          [=] {
            std::vector<std::jthread> running;
            for (int i = 0; i < threads; ++i)
              running.emplace_back(sendRows, requestsPerTurn / threads,
                                   &(*latencies)[static_cast<std::size_t>(i)]);
            return true;
          }};
}

Side sideOf(const char* name, ExchangeClient* client) {
  return {name, requestsPerTurn, [client](int) { return client->run(1); }};
}

}  // namespace

int main(int argc, char** argv) {
  const EchoPeer echo;
  echo.becomeDch();
  const SharedMemory<LatenciesOfThreads> own, shared;
  ExchangeClient ownClient([&] { return exchangeOf(sockets, &*own); });
  ExchangeClient sharingClient([&] { return exchangeOf(sharingThreads, &*shared); });
  Medians medians = runSides(argc, argv,
                             {sideOf("4 threads, 4 sockets", &ownClient),
                              sideOf("16 threads, 4 sockets", &sharingClient)});
  printFigure("requests/s, 16 threads on 4 sockets / 4 threads",
              medians["4 threads, 4 sockets"] / medians["16 threads, 4 sockets"]);
  float worst = 0;
  for (const Latencies& latencies : *shared) {
    LatencySummary thread;
    thread.add(latencies);
    const float p50 = thread.quantile(0.5), p99 = thread.quantile(0.99);
    worst = std::max(worst, p99 / p50);
  }
  printFigure("p99 / p50 of the thread that waits the longest", worst);
}
