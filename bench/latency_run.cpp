#include "bench/latency_run.h"

#include <stdexcept>

namespace {

using Clock = std::chrono::steady_clock;

void runExchange(const Exchange& exchange, std::chrono::milliseconds time, Latencies* latencies) {
  const auto end = Clock::now() + time;
  while (Clock::now() < end) {
    exchange.prepare();
    const auto start = Clock::now();
    if (!exchange.roundTrip()) throw std::runtime_error("a round trip failed");
    latencies->add(std::chrono::duration<float, std::micro>(Clock::now() - start).count());
  }
}

}  // namespace

LatencyRun::LatencyRun(int processes, const std::function<Exchange(int)>& connect,
                       std::chrono::milliseconds time) {
  for (int i = 0; i < processes; ++i) {
    Latencies& latencies = *_latencies.emplace_back();
    _processes.emplace_back([&, i] { runExchange(connect(i), time, &latencies); });
  }
}

Percentiles LatencyRun::finish() {
  LatencySummary all;
  for (Worker& process : _processes)
    if (!process.succeeded()) throw std::runtime_error("a process of the benchmark failed");
  for (const SharedMemory<Latencies>& latencies : _latencies) all.add(*latencies);
  return {all.quantile(0.5), all.quantile(0.99), all.count()};
}
