// kept_rows_source.h: where to read the rows that a store keeps, for who does it beside the server.
#ifndef DCH_STORE_KEPT_ROWS_SOURCE_H
#define DCH_STORE_KEPT_ROWS_SOURCE_H

#include <cstdint>
#include <functional>

#include "dch/core/epoch.h"
#include "dch/store/file_place.h"

namespace dch {

// Of a store in a file, which outlives it. Any thread.
struct KeptRowsSource {
  std::function<StatePlaces()> places;         // as of History
  std::function<std::int64_t()> keptPosition;  // the highest position that is kept
  Epoch run{};                                 // of who keeps them
};

}  // namespace dch

#endif  // DCH_STORE_KEPT_ROWS_SOURCE_H
