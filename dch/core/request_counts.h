// request_counts.h: how many requests of each kind have had each status.
#ifndef DCH_CORE_REQUEST_COUNTS_H
#define DCH_CORE_REQUEST_COUNTS_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "dch/core/requests.h"
#include "zordchcl/status.h"

namespace dch {

// A request counts when it is answered, one that has no answer when it is done. A question for the
// result of an action that comes again while it waits is the same one. One thread.
class RequestCounts {
 public:
  // The statuses of DCH_statusTable in its order.
  using ByStatus = std::array<std::uint64_t, std::size(DCH_statusTable)>;

  void add(const RequestType& type, DCH_Status status) {
    ++_counts.at(placeOf(type)).at(columnOf(status));
  }

  const ByStatus& of(const RequestType& type) const { return _counts.at(placeOf(type)); }
  std::uint64_t of(const RequestType& type, DCH_Status status) const {
    return of(type).at(columnOf(status));
  }

 private:
  static std::size_t columnOf(DCH_Status status) {
    std::size_t column = 0;
    while (DCH_statusTable[column].number != status) ++column;
    return column;
  }
  static std::size_t placeOf(const RequestType& type) {
    return static_cast<std::size_t>(&type - requestTypes().data());
  }

  std::array<ByStatus, mostRequestTypes> _counts{};
};

}  // namespace dch

#endif  // DCH_CORE_REQUEST_COUNTS_H
