#include "dch/store/thinning_function.h"

#include <algorithm>

#include "dch/store/group_view.h"

namespace dch {

namespace {

// The part, the number and the time.
constexpr int fixedArguments = 3;

void thin(sqlite3_context*, int count, sqlite3_value** arguments) {
  auto* const part =
      static_cast<ThinningPart*>(sqlite3_value_pointer(arguments[0], ThinningPart::type));
  const std::int64_t number = sqlite3_value_int64(arguments[1]);
  if (part == nullptr || (part->last && number <= *part->last)) return;
  part->last = number;
  const Time time = sqlite3_value_int64(arguments[2]);
  if (time < part->since || time > part->until) return;
  Thinning& thinning = *part->thinning;
  const std::size_t bucket = thinning.bucketOf(time);
  if (part->countsRows) thinning.addRow(bucket, time);
  for (int i = fixedArguments; i < count; ++i)
    if (sqlite3_value_type(arguments[i]) == SQLITE_INTEGER)
      thinning.add(bucket, part->firstAttribute + static_cast<std::size_t>(i - fixedArguments),
                   sqlite3_value_int64(arguments[i]));
}

void giveNothing(sqlite3_context* context) {
  sqlite3_result_null(context);
}

}  // namespace

void addThinningFunction(sqlite::Connection& connection) {
  connection.check(sqlite3_create_function_v2(connection.handle(), "thin", -1,
                                              SQLITE_UTF8 | SQLITE_DIRECTONLY, nullptr, nullptr,
                                              thin, giveNothing, nullptr));
}

std::string thinningCall(const ThinningPart& part, int parameter) {
  std::string call = "thin(?" + std::to_string(parameter) + ", number, time_us";
  for (const int column : part.columns) call += ", " + columnName(column);
  return call + ")";
}

std::size_t mostThinnedNumbers(sqlite::Connection& connection) {
  const int most = sqlite3_limit(connection.handle(), SQLITE_LIMIT_FUNCTION_ARG, -1);
  return static_cast<std::size_t>(std::max(most - fixedArguments, 1));
}

}  // namespace dch
