// clock_steps.h: where the times of the rows go back, because somebody has set the clock back.
#ifndef DCH_STORE_CLOCK_STEPS_H
#define DCH_STORE_CLOCK_STEPS_H

#include <cstdint>
#include <vector>

#include "dch/core/message.h"
#include "dch/store/providers.h"
#include "dch/store/sqlite.h"

namespace dch {

// Rows have the order in which they came, and an index by time would make each cost more. Between
// two steps no row is older by more than `leastStep` than one before it, so that a time is found by
// a binary search; rows of a clock that was ahead for a while stay for long, and the later ones
// behind them need not. After a transaction that did not succeed it is made anew. One thread at a
// time.
class ClockSteps {
 public:
  // Shorter steps are ignored: rows stay for up to so much too long, and who looks for a time looks
  // through so much more.
  static constexpr Time leastStep = Time{10} * 1'000'000;

  // Reads what is in the file.
  ClockSteps(sqlite::Connection& connection, const Providers& providers);

  // In a transaction: a row with this number and time is in its table.
  void note(std::int64_t number, Time time);
  // In a transaction: there is no row before this one.
  void forgetBefore(std::int64_t number);

  // The numbers of the first rows behind each step, in their order; the first one is 0.
  const std::vector<std::int64_t>& starts() const { return _starts; }

 private:
  std::vector<std::int64_t> _starts{0};
  Time _latest;  // since the last step, or later
  sqlite::Statement _add;
  sqlite::Statement _forget;
};

}  // namespace dch

#endif  // DCH_STORE_CLOCK_STEPS_H
