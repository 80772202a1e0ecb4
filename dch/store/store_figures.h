// store_figures.h: what a store has done.
#ifndef DCH_STORE_STORE_FIGURES_H
#define DCH_STORE_STORE_FIGURES_H

#include <cstdint>

namespace dch {

// What has been done, since the store was opened.
struct StoreFigures {
  std::uint64_t groups = 0;
  std::uint64_t changesKept = 0;
  std::uint64_t changesRefused = 0;
  std::uint64_t rowsRemoved = 0;             // by retention
  std::uint64_t rowsRemovedUnpublished = 0;  // of those; see SqliteStoreSettings
  std::uint64_t remoteRowsRefused = 0;       // for want of room for their groups
  std::uint64_t failures = 0;      // groups, checkpoints, steps of retention, looks at its place
  std::uint64_t microseconds = 0;  // in which groups were written
  std::int64_t position = 0;       // the highest that is kept
  bool isFailing = false;          // what comes now would not be kept, as far as is known
};

}  // namespace dch

#endif  // DCH_STORE_STORE_FIGURES_H
