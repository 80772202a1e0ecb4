// row_name.h: what tells a kept row from all others.
#ifndef DCH_CORE_ROW_NAME_H
#define DCH_CORE_ROW_NAME_H

#include <cstdint>

#include "dch/core/epoch.h"

namespace dch {

// A row's name for ever, among those of all sites.
struct RowName {
  Epoch epoch;              // of the run that kept it
  std::int64_t number = 0;  // its place among all that its store has kept

  friend bool operator==(const RowName&, const RowName&) = default;
};

}  // namespace dch

#endif  // DCH_CORE_ROW_NAME_H
