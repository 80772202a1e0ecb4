// shared_count.h: a number that processes of a benchmark share.
#ifndef BENCH_SHARED_COUNT_H
#define BENCH_SHARED_COUNT_H

#include <sys/mman.h>

#include <atomic>
#include <cstdint>
#include <new>
#include <thread>

// Made before the processes that share it.
class SharedCount {
 public:
  SharedCount() {
    void* const memory =
        mmap(nullptr, sizeof *_count, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    _count = new (memory) std::atomic<std::uint64_t>(0);
  }
  ~SharedCount() { munmap(_count, sizeof *_count); }
  SharedCount(const SharedCount&) = delete;
  SharedCount& operator=(const SharedCount&) = delete;

  // For the one process that counts.
  void add() { _count->store(value() + 1, std::memory_order_release); }
  std::uint64_t value() const { return _count->load(std::memory_order_acquire); }

  void waitFor(std::uint64_t least) const {
    while (value() < least) std::this_thread::yield();
  }

 private:
  std::atomic<std::uint64_t>* _count;
};

#endif  // BENCH_SHARED_COUNT_H
