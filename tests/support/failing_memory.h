// failing_memory.h: makes the allocations of the library fail, and counts allocations. For programs
// that link zord410_test_failing_memory, which replaces operator new. A single allocation fails by
// fault_plan.h.
#ifndef TESTS_SUPPORT_FAILING_MEMORY_H
#define TESTS_SUPPORT_FAILING_MEMORY_H

#include <cstddef>

// While it lives, every allocation that may answer null (`new (std::nothrow)`, which is what the
// library uses) does so, in all threads. One at a time.
class FailingMemory {
 public:
  FailingMemory();
  ~FailingMemory();
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;

  // What the last allocation that failed had asked for, in bytes.
  static std::size_t lastRefusedBytes();
};

// The number of allocations through operator new so far, in any of its forms but the aligned ones,
// and how many of them are not freed yet.
std::size_t allocationCount();
long liveAllocations();

#endif  // TESTS_SUPPORT_FAILING_MEMORY_H
