// row_names.h: short names of rows.
#ifndef DCH_TESTKIT_ROW_NAMES_H
#define DCH_TESTKIT_ROW_NAMES_H

#include <cstdint>

#include "dch/core/row_name.h"

namespace dch::testkit {

// Of a run that has this number.
inline RowName name(std::int64_t number, int run = 1) {
  Epoch epoch;
  epoch.bytes[0] = static_cast<std::uint8_t>(run);
  epoch.bytes[1] = static_cast<std::uint8_t>(run >> 8);
  return {epoch, number};
}

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_ROW_NAMES_H
