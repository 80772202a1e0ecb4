// rows_query.h: the rows of a group in the state file, some at a time.
#ifndef DCH_STORE_ROWS_QUERY_H
#define DCH_STORE_ROWS_QUERY_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "dch/core/attribute_value.h"
#include "dch/store/history.h"
#include "dch/store/number_slices.h"
#include "dch/store/row_search.h"

namespace dch {

// Valid until the function that takes it returns.
struct HistoryRow {
  std::int64_t number = 0;  // its place among all changes
  Time time = 0;
  ZORA_Long handle = 0;
  std::string_view source;
  int code = 0;
  std::vector<AttributeValue> values;  // in the order of the group's columns
};

// The rows there are when it begins, in the order in which they came; what retention removes
// meanwhile may be missing. Between its steps it holds nothing of the file, so that queries take
// turns and checkpoints get done. One thread, that of the history, which outlives it.
class RowsQuery {
 public:
  using Clock = History::Clock;
  // Returns whether it takes another row in this step.
  using Take = std::function<bool(const HistoryRow&)>;

  // Of all sources or of one; with a limit the newest ones of the range.
  RowsQuery(History& history, const HistoryGroup& group, std::optional<ZORA_Long> handle,
            const HistoryRange& range, std::optional<std::int64_t> limit = {});

  // Works for about that time. Hands out some rows, or none while it is looking for them. Returns
  // false when all have been handed out. Throws HistoryError, and what `take` throws, and is not
  // called again then.
  bool step(const Take& take, Clock::duration time = historyStepTime);

 private:
  enum class Phase { begin, lookBack, readOn, done };

  void begin(sqlite::Connection& connection);
  void lookBack(sqlite::Connection& connection, Clock::time_point deadline);
  void readOn(sqlite::Connection& connection, Clock::time_point deadline, const Take& take);
  const HistoryRow& rowOf(sqlite::Connection& connection, const sqlite::Statement& query);
  std::string_view nameOf(sqlite::Connection& connection, ZORA_Long handle);

  History& _history;
  const RowFilter _filter;
  std::string _columns;  // of the group's table
  const bool _isLimited;
  std::int64_t _left;  // of the limit, while it looks where to begin
  RowSearch _search;
  Phase _phase = Phase::begin;
  std::size_t _index = 0;               // of the range in the search
  std::optional<NumberRange> _newest;   // where those are that the limit lets through
  std::optional<NumberSlices> _slices;  // of the range
  HistoryRow _row;
  std::unordered_map<ZORA_Long, std::string> _names;  // of some sources
};

}  // namespace dch

#endif  // DCH_STORE_ROWS_QUERY_H
