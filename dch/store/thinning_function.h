// thinning_function.h: lets SQLite hand numbers of rows to a Thinning. That takes two thirds of the
// time of asking it for each row.
#ifndef DCH_STORE_THINNING_FUNCTION_H
#define DCH_STORE_THINNING_FUNCTION_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "dch/store/sqlite.h"
#include "dch/store/thinning.h"

namespace dch {

// Some attributes of the rows, as many as an SQL function can take. It takes the rows behind the
// last one it was given, since a statement that was ended in the middle is run again from there,
// and those of the time: to have SQL look at that takes a fifth longer.
struct ThinningPart {
  static constexpr char type[] = "ThinningPart";

  // Whether the rows themselves are counted, which one of the parts does.
  bool countsRows = false;
  std::size_t firstAttribute = 0;
  std::vector<int> columns;  // of the group's table
  Thinning* thinning = nullptr;
  Time since = std::numeric_limits<Time>::min();
  Time until = std::numeric_limits<Time>::max();
  std::optional<std::int64_t> last = {};
};

// The connection knows from now on the aggregate `thin(part, number, time, numbers...)`.
void addThinningFunction(sqlite::Connection& connection);

// The call of it for this part, which is bound as this parameter.
std::string thinningCall(const ThinningPart& part, int parameter);

// How many numbers a call can take.
std::size_t mostThinnedNumbers(sqlite::Connection& connection);

}  // namespace dch

#endif  // DCH_STORE_THINNING_FUNCTION_H
