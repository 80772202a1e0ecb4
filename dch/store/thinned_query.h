// thinned_query.h: the numbers in the rows of a group, thinned to some points in time.
#ifndef DCH_STORE_THINNED_QUERY_H
#define DCH_STORE_THINNED_QUERY_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "dch/store/history.h"
#include "dch/store/number_slices.h"
#include "dch/store/row_search.h"
#include "dch/store/thinning.h"
#include "dch/store/thinning_function.h"

namespace dch {

// Valid until the function that takes it returns.
struct ThinnedPoint {
  Time time = 0;           // of its first row
  std::uint64_t rows = 0;  // that it stands for
  std::vector<ThinnedNumber> numbers;
};

// Divides the range evenly: without `since` from its first row, without `until` to its last one.
// Of the rows there are when it begins, as RowsQuery does. One thread, that of the history, which
// outlives it.
class ThinnedQuery {
 public:
  using Clock = History::Clock;

  // Of points and attributes together; with more there are fewer points. They take 20 MB.
  static constexpr std::size_t mostNumbers = 400'000;

  // Of all sources or of one. `points` is 1 at least.
  ThinnedQuery(History& history, const HistoryGroup& group, std::optional<ZORA_Long> handle,
               const HistoryRange& range, std::size_t points);

  // Works for about that time. Returns false when it is done. Throws HistoryError, and is not
  // called again then.
  bool step(Clock::duration time = historyStepTime);

  // When it is done: the columns that are numbers, or were, and the points that have rows, in the
  // order of their times, with these numbers each.
  const std::vector<HistoryColumn>& columns() const { return _columns; }
  void forEachPoint(const std::function<void(const ThinnedPoint&)>& take) const;

 private:
  // In this order; one that has nothing to do is left out.
  enum class Phase { begin, locate, trimFirst, trimLast, prepare, thin, done };

  void work(sqlite::Connection& connection, Clock::time_point deadline);
  void trim(sqlite::Connection& connection, Clock::time_point deadline);
  void note(Time time);
  void prepare(sqlite::Connection& connection);
  void thin(sqlite::Connection& connection, Clock::time_point deadline);
  NumberSlices::Outcome thin(sqlite::Statement& query, const NumberRange& slice,
                             Clock::time_point deadline);
  void dropTexts();
  void goToNextRange();
  void goToNextPhase();

  History& _history;
  RowFilter _filter;
  const std::size_t _points;
  std::vector<HistoryColumn> _columns;
  std::vector<std::size_t> _attributes;  // of the thinning, one for each column
  RowSearch _search;
  Phase _phase = Phase::begin;
  std::size_t _index = 0;  // of the range
  std::vector<NumberRange> _ranges;
  std::optional<NumberSlices> _slices;  // of the range
  std::optional<Time> _from;
  std::optional<Time> _to;
  std::optional<Thinning> _thinning;
  std::vector<ThinningPart> _parts;
};

}  // namespace dch

#endif  // DCH_STORE_THINNED_QUERY_H
