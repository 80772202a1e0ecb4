// latency_run.h: processes that make round trips one after the other, each of which is measured.
#ifndef BENCH_LATENCY_RUN_H
#define BENCH_LATENCY_RUN_H

#include <chrono>
#include <functional>
#include <list>

#include "bench/exchange_client.h"
#include "bench/latencies.h"
#include "bench/shared_memory.h"

// In microseconds.
struct Percentiles {
  float p50, p99;
  std::size_t count;
};

class LatencyRun {
 public:
  // Each process makes the round trips of its exchange for that long. `connect` runs in it.
  LatencyRun(int processes, const std::function<Exchange(int number)>& connect,
             std::chrono::milliseconds time);

  // Waits for their end; what all of them measured together. Throws when a round trip failed.
  Percentiles finish();

 private:
  std::list<SharedMemory<Latencies>> _latencies;
  std::list<Worker> _processes;
};

#endif  // BENCH_LATENCY_RUN_H
