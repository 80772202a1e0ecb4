// passed_rows.h: which rows of a site the readers of the stream have passed over.
#ifndef DCH_LINK_PASSED_ROWS_H
#define DCH_LINK_PASSED_ROWS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "dch/core/row_name.h"

namespace dch {

// Notes the lowest and the highest of each epoch, however many rows they are; where there are more
// epochs, of those with the lowest numbers, and of all others together. Pure.
class PassedRows {
 public:
  explicit PassedRows(std::size_t mostEpochs) : _mostEpochs(mostEpochs) {}

  void add(std::uint64_t sequence, const RowName& row);
  void clear();

  // The highest number of an epoch up to which all rows are known.
  using KnownUpTo = std::function<std::int64_t(const Epoch&)>;
  // Forgets the epochs of which all is known.
  void removeKnown(const KnownUpTo& knownUpTo);

  // The lowest number of any epoch that is noted.
  std::optional<RowName> lowest() const;
  // The lowest in the stream; nothing when there is none.
  std::optional<std::uint64_t> firstSequence() const;

  // Whether there may be some of its epoch that are neither known nor behind it.
  bool mayHaveBefore(const RowName& row, std::int64_t knownUpTo) const;
  // Whether there is one of its epoch that is not before it.
  bool hasFrom(const RowName& row) const;

 private:
  struct Range {
    RowName first;
    std::int64_t last = 0;
    std::uint64_t sequence = 0;  // the lowest in the stream
  };

  void addEpoch(Range range);

  std::size_t _mostEpochs;
  std::vector<Range> _ranges;
  std::optional<Range> _further;  // of all other epochs: it has no epoch, and no last
};

}  // namespace dch

#endif  // DCH_LINK_PASSED_ROWS_H
