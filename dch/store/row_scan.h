// row_scan.h: takes the rows of a slice.
#ifndef DCH_STORE_ROW_SCAN_H
#define DCH_STORE_ROW_SCAN_H

#include <cstdint>
#include <optional>

#include "dch/store/history.h"
#include "dch/store/number_slices.h"
#include "dch/store/sqlite.h"

namespace dch {

// In a task of the history: calls `take` after each step of the query, a RowFilter's whose first
// column is the number, until it returns false, the slice is done, or the time is over.
template <class Take>
NumberSlices::Outcome takeRows(History& history, sqlite::Statement& query, const NumberRange& slice,
                               History::Clock::time_point deadline, Take take) {
  std::optional<std::int64_t> last;
  bool goesOn = true;
  query.bind(1, slice.first).bind(2, slice.last);
  const bool isInTime = history.runUntil(deadline, [&] {
    while (goesOn && query.step()) {
      goesOn = take();
      last = query.number(0);
    }
  });
  query.reset();
  return {isInTime && goesOn, last};
}

}  // namespace dch

#endif  // DCH_STORE_ROW_SCAN_H
