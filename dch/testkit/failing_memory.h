// failing_memory.h: what a program whose memory fails shares with its test: a file of this form,
// which the variable ZORD410_FAILING_MEMORY names, mapped by both.
#ifndef DCH_TESTKIT_FAILING_MEMORY_H
#define DCH_TESTKIT_FAILING_MEMORY_H

#include <atomic>
#include <cstdint>

namespace dch::testkit {

struct MemoryPlan {
  std::atomic<std::uint64_t> asked;         // how often memory was asked for so far
  std::atomic<std::uint64_t> refused;       // how often there was none
  std::atomic<std::uint64_t> firstRefused;  // counted from 1; 0 for none
  std::atomic<std::uint64_t> refusals;      // from that one on
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_FAILING_MEMORY_H
