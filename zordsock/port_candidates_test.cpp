// The candidate ports of an instance, which are fixed. They are all in use here, by these tests or
// by another program.
#include <gtest/gtest.h>

#include <chrono>
#include <deque>
#include <thread>

#include "zordsock/test_port.h"

namespace {

// Takes the port. Another test may have got it from the system: that one is waited for, or it would
// give the port back in the middle of this test.
void take(int port, std::deque<TakenPort>* taken) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!taken->emplace_back(port).isOwn() && std::chrono::steady_clock::now() < end) {
    taken->pop_back();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

// What becomes of an instance whose candidates are all in use.
void expectAllInUse(const char* settingsText, int tracedOffset, const std::vector<int>& candidates,
                    std::size_t retries) {
  ZORA_SetInstanceName("inst1");
  const ProductSettings settings(settingsText);
  std::deque<TakenPort> taken;
  AllocationTrace trace(defaultPort);
  trace.addInstance("inst1", "MONITOR").addOffset(tracedOffset);
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    take(candidates[i], &taken);
    trace.addFailed();
    if (i < retries) trace.addRetry(candidates[i]);
  }
  expectTraceAndExit(
      allocationName, [] { PortlessServer(defaultPort).allocateDCHport(); },
      trace.allUnavailable("MONITOR"));
}

TEST(PortCandidates, AreTenAThousandApart) {
  expectAllInUse("3=MONITOR\n", 0,
                 {49219, 50219, 51219, 52219, 53219, 54219, 55219, 56219, 57219, 58219}, 9);
}

TEST(PortCandidates, EndAtTheHighestPort) {
  expectAllInUse("3=MONITOR\n23=5000\n", 5000, {53219, 58219, 63219}, 3);
}

}  // namespace
