#include "dch/web/kept_rows.h"

#include "dch/web/http_status.h"

namespace dch {

void NoKeptRows::answer(const RowsQuestion&, std::function<void(Answer&&)> respond) {
  respond(errorAnswer(http_status::conflict,
                      "this server keeps no rows, its state is in memory; start it with --store "
                      "FILE to keep them"));
}

}  // namespace dch
