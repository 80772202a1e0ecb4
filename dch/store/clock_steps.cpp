#include "dch/store/clock_steps.h"

#include <algorithm>
#include <limits>

namespace dch {

namespace {

Time timeOfNewestRow(const Providers& providers) {
  RowTable::Place newest{0, std::numeric_limits<Time>::min()};
  for (const auto& table : providers.tables())
    if (const auto last = table->last(); last && last->number > newest.number) newest = *last;
  return newest.time;
}

// What is known of the latest row without a search: it may be so much later than the newest one.
Time latestAfter(Time newest) {
  return std::min(newest, std::numeric_limits<Time>::max() - ClockSteps::leastStep) +
         ClockSteps::leastStep;
}

}  // namespace

ClockSteps::ClockSteps(sqlite::Connection& connection, const Providers& providers)
    : _latest(latestAfter(timeOfNewestRow(providers))),
      _add(connection, "INSERT INTO clock_steps VALUES (?)"),
      _forget(connection, "DELETE FROM clock_steps WHERE number <= ?") {
  sqlite::Statement query(connection, "SELECT number FROM clock_steps ORDER BY number");
  while (query.step()) _starts.push_back(query.number(0));
}

void ClockSteps::note(std::int64_t number, Time time) {
  // A sum: the difference to the lowest number would overflow.
  if (time + leastStep >= _latest) {
    _latest = std::max(_latest, time);
    return;
  }
  _add.bind(1, number).run();
  _starts.push_back(number);
  _latest = time;
}

void ClockSteps::forgetBefore(std::int64_t number) {
  if (_starts.size() == 1 || number < _starts[1]) return;
  _forget.bind(1, number).run();
  const auto next = std::upper_bound(_starts.begin(), _starts.end(), number);
  _starts.erase(_starts.begin() + 1, next);
}

}  // namespace dch
