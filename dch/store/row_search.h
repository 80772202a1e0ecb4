// row_search.h: finds the rows of a time by their numbers.
#ifndef DCH_STORE_ROW_SEARCH_H
#define DCH_STORE_ROW_SEARCH_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "dch/core/message.h"
#include "dch/store/number_slices.h"
#include "dch/store/sqlite.h"
#include "zora/zora.h"

namespace dch {

// Times are those of the rows, both included.
struct HistoryRange {
  std::optional<Time> since;
  std::optional<Time> until;
};

// Which rows of a group are wanted.
struct RowFilter {
  std::int64_t group = 0;
  std::optional<ZORA_Long> handle;
  HistoryRange range;

  // The query of these columns of the rows that have numbers between parameters 1 and 2. It uses
  // parameters 3 to 5, too.
  std::string query(const std::string& columns, Direction direction = Direction::forwards) const;
  void bind(sqlite::Statement* statement) const;
};

// Rows have the order in which they came. Their times go back only where the clock was set back, by
// more than `leastStep` at ClockSteps and by less anywhere. So the rows between two steps are
// searched for the first and the last one that may be in the range. One thread; connections are
// those to one file.
class RowSearch {
 public:
  RowSearch() = default;
  explicit RowSearch(const RowFilter& filter) : _filter(filter) {}

  // Once, first of all. Rows that come later are not found.
  void begin(sqlite::Connection& connection);

  // How many ranges of numbers there are, in the order of the rows.
  std::size_t count() const { return _starts.size(); }

  // Outside of this range of numbers no row of the range has a wanted time. It may be empty.
  NumberRange find(sqlite::Connection& connection, std::size_t index) const;

 private:
  NumberRange between(std::size_t index) const;

  RowFilter _filter;
  std::vector<std::int64_t> _starts;
  std::int64_t _last = 0;
};

}  // namespace dch

#endif  // DCH_STORE_ROW_SEARCH_H
