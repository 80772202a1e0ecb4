#include "dch/web/kept_rows.h"

namespace dch {

namespace {

constexpr int conflict = 409;

}  // namespace

void NoKeptRows::answer(const RowsQuestion&, std::function<void(Answer&&)> respond) {
  respond(errorAnswer(conflict,
                      "this server keeps no rows, its state is in memory; start it with --store "
                      "FILE to keep them"));
}

}  // namespace dch
