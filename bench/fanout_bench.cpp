// What it costs the others that a row goes to very many subscribers: the latency of 8 providers'
// rows while another one's rows go to 1,000 subscribers each, and while there are none.
//   fanout_bench [ROUNDS [SECONDS]]: 5 rounds of both sides, 2 seconds a side
#include <cstdio>
#include <cstdlib>

#include "bench/descriptors.h"
#include "bench/latency_run.h"
#include "bench/row_exchanges.h"
#include "bench/sides.h"
#include "bench/subscribers.h"
#include "dch/testkit/server_process.h"

namespace {

constexpr int providers = 8;
constexpr int subscribers = 1'000;

// Long enough for the subscribers to read a row before the next one is sent.
constexpr std::chrono::milliseconds pauseBetweenRows{10};

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 5;
  const std::chrono::seconds time(argc > 2 ? std::atoi(argv[2]) : 2);
  allowManyDescriptors();
  const dch::testkit::ServerProcess server;
  Subscribers readers(subscribers);
  ExchangeClient publisher([&] {
    return afterAPause(pauseBetweenRows, sendRowsToServer(server.port(), "host", "WIDE"));
  });
  publisher.run(1);  // it is on line
  readers.subscribe(server.port(), "WIDE");
  publisher.run(1);  // the server has taken the subscriptions by now
  readers.startCounting();

  const auto connect = [&](int number) {
    return sendRowsToServer(server.port(), "host" + std::to_string(number));
  };
  std::vector<double> quiet, busy;
  for (int round = 0; round < rounds; ++round) {
    const Percentiles without = LatencyRun(providers, connect, time).finish();
    const std::uint64_t before = readers.received();
    LatencyRun run(providers, connect, time);
    publisher.start(static_cast<int>(time / pauseBetweenRows));
    const Percentiles with = run.finish();
    const std::uint64_t pushed = readers.received() - before;
    publisher.finish();
    std::printf(
        "without: p50 %5.0f us, p99 %5.0f us   with: p50 %5.0f us, p99 %5.0f us, %.0f "
        "rows/s pushed\n",
        without.p50, without.p99, with.p50, with.p99,
        static_cast<double>(pushed) / static_cast<double>(time.count()));
    quiet.push_back(without.p99);
    busy.push_back(with.p99);
  }
  printFigure("p99 of 8 providers, a row going to 1,000 subscribers / without",
              median(busy) / median(quiet));
}
