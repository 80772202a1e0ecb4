// shared_count.h: a number that processes of a benchmark share.
#ifndef BENCH_SHARED_COUNT_H
#define BENCH_SHARED_COUNT_H

#include <atomic>
#include <cstdint>
#include <thread>

#include "bench/shared_memory.h"

// Made before the processes that share it.
class SharedCount {
 public:
  // For the one process that counts.
  void add() { _count->store(value() + 1, std::memory_order_release); }
  std::uint64_t value() const { return _count->load(std::memory_order_acquire); }

  void waitFor(std::uint64_t least) const {
    while (value() < least) std::this_thread::yield();
  }

 private:
  SharedMemory<std::atomic<std::uint64_t>> _count;
};

#endif  // BENCH_SHARED_COUNT_H
