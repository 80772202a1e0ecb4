// offline_rows.h: the newest rows of sources that are off line, as far as there is room for them.
#ifndef DCH_CORE_OFFLINE_ROWS_H
#define DCH_CORE_OFFLINE_ROWS_H

#include <cstddef>

namespace dch {

struct Row;
struct Source;

// Sources that have gone off line are many, some of them for good, so what their rows take together
// is limited: where there is no room for one more, those that have been off line longest are
// forgotten. It takes no memory of its own: the rows stay with their sources, and so does their
// order. One thread.
class OfflineRows {
 public:
  explicit OfflineRows(std::size_t limitBytes) : _limitBytes(limitBytes) {}
  OfflineRows(const OfflineRows&) = delete;
  OfflineRows& operator=(const OfflineRows&) = delete;

  // The source has gone off line, and may have a row.
  void add(Source* source) noexcept;

  // The source, which is off line, has got this row in the place of an earlier one. It is left as
  // it is when there will never be room for it.
  void replace(Source* source, Row* row) noexcept;

  // The source goes on line. It keeps its row.
  void remove(Source* source) noexcept;

 private:
  void append(Source* source) noexcept;
  void forgetOldest() noexcept;

  const std::size_t _limitBytes;
  std::size_t _bytes = 0;
  Source* _oldest = nullptr;
  Source* _newest = nullptr;
};

}  // namespace dch

#endif  // DCH_CORE_OFFLINE_ROWS_H
