#include "dch/link/live_interest.h"

namespace dch {

LiveInterest::Pass LiveInterest::pass(std::size_t group, Time now) {
  Group& known = _groups[group];
  const std::uint64_t asked = known.asked.load(std::memory_order_relaxed);
  // Also when the clock was set back.
  if (asked == 0 || now < known.askedAt || now - known.askedAt >= pauseOfQuestions) {
    known.askedAt = now;
    known.asked.store(asked + 1, std::memory_order_relaxed);
    return {true, asked + 1};
  }
  return {known.refused.load(std::memory_order_relaxed) != asked, 0};
}

void LiveInterest::nobody(std::size_t group, std::uint64_t question) noexcept {
  if (group >= _groups.size()) return;
  Group& known = _groups[group];
  if (question == known.asked.load(std::memory_order_relaxed))
    known.refused.store(question, std::memory_order_relaxed);
}

}  // namespace dch
