// live_counts.h: which live rows of other sites have not come.
#ifndef DCH_LINK_LIVE_COUNTS_H
#define DCH_LINK_LIVE_COUNTS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "dch/core/epoch.h"
#include "dch/core/text_map.h"

namespace dch {

// By what the rows of a group say in LiveHeader::count. One thread.
class LiveCounts {
 public:
  explicit LiveCounts(std::size_t mostKnown = 100'000) : _mostKnown(mostKnown) {}

  struct Seen {
    bool isNew = true;         // else it has come already, or one behind it has
    std::uint64_t missed = 0;  // those between the one before and this one

    friend bool operator==(const Seen&, const Seen&) = default;
  };
  // A row of the site has come. The first one of a run says nothing of those before it; neither
  // does one that is further from the one before than rows are lost. Throws std::bad_alloc.
  Seen note(const std::string& topic, const std::string& site, const Epoch& run,
            std::uint64_t count);

  // Rows of the topic are not asked for any more.
  void forget(std::string_view topic);

 private:
  struct Last {
    Epoch run;
    std::uint64_t count = 0;
  };

  const std::size_t _mostKnown;
  std::size_t _known = 0;
  TextMap<TextMap<Last>> _topics;  // sites of topics
};

}  // namespace dch

#endif  // DCH_LINK_LIVE_COUNTS_H
