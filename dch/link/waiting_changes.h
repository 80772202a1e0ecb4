// waiting_changes.h: what sites say that has changed, until somebody looks at it.
#ifndef DCH_LINK_WAITING_CHANGES_H
#define DCH_LINK_WAITING_CHANGES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "dch/link/site_changes.h"

namespace dch {

// In the order in which it came. What has no room is left out: who has the changes before it sees
// by their revisions that there is a gap. One thread.
class WaitingChanges {
 public:
  // As it is counted, with what it takes around the texts.
  static constexpr std::size_t mostBytes = std::size_t{8} * 1024 * 1024;
  static constexpr std::size_t mostBytesOfASite = mostBytes / 4;

  // Where a run says its revision again, the later one replaces the earlier one. Throws
  // std::bad_alloc; nothing has changed then.
  void add(SiteChanges&& changes);

  std::vector<SiteChanges> take() noexcept;

  // What had no room.
  std::uint64_t dropped() const { return _dropped; }

 private:
  struct OfSite {
    std::size_t bytes = 0;
    std::size_t last = 0;  // its index in _all
  };

  std::vector<SiteChanges> _all;
  std::map<std::string, OfSite, std::less<>> _sites;
  std::size_t _bytes = 0;
  std::uint64_t _dropped = 0;
};

}  // namespace dch

#endif  // DCH_LINK_WAITING_CHANGES_H
