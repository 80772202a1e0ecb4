// row_handover.h: what a hub has collected, on its way to who has it kept.
#ifndef DCH_LINK_ROW_HANDOVER_H
#define DCH_LINK_ROW_HANDOVER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include "dch/core/change.h"
#include "dch/link/collected_site.h"
#include "dch/link/streamed_rows.h"

namespace dch {

// Any thread, but for what says otherwise.
class RowHandover {
 public:
  // `wake` is called on the collecting thread when there is something to take.
  explicit RowHandover(std::function<void()> wake) : _wake(std::move(wake)) {}

  // What is to be kept next, in this order; empty while what was taken before is not kept, or when
  // there is nothing.
  std::vector<Change> take();
  // All that was taken is kept.
  void taken() noexcept;
  bool isUnderWay() const;

  std::uint64_t rowsKept() const;

  // The collecting thread's. Unless something is under way: all that is unkept of these sites,
  // which are so many rows, and up to where the stream was read with them; `touched` is empty then.
  // Returns whether it was. Throws std::bad_alloc.
  bool offer(std::set<CollectedSite*>* touched, std::size_t rows, const StreamPlace& read);

 private:
  const std::function<void()> _wake;
  mutable std::mutex _mutex;
  std::vector<Change> _changes;
  std::size_t _rows = 0;  // under way
  std::uint64_t _rowsKept = 0;
  bool _isUnderWay = false;
  StreamPlace _offeredUpTo;
  StreamPlace _keptUpTo;  // all that was read up to there is kept
  StreamPlace _toldUpTo;  // to the store
  std::chrono::steady_clock::time_point _nextPlace;
};

}  // namespace dch

#endif  // DCH_LINK_ROW_HANDOVER_H
