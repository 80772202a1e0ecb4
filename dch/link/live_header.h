// live_header.h: what a live row says of itself, in its header Zord-Live.
#ifndef DCH_LINK_LIVE_HEADER_H
#define DCH_LINK_LIVE_HEADER_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "dch/core/epoch.h"
#include "dch/core/message.h"

namespace dch {

struct LiveHeader {
  Epoch run;  // of the site
  // The rows of the group that were to go out in this run are counted from 1, also those for which
  // there was no room.
  std::uint64_t count = 0;
  Time time = 0;
  std::string source;  // no longer than one may be here

  friend bool operator==(const LiveHeader&, const LiveHeader&) = default;
};

// "1 RUN COUNT TIME SOURCE": the version of this form; microseconds since 1970, UTC; the source as
// in Zord-Row.
std::string liveHeaderText(const LiveHeader& header);

// Takes any bytes. Nothing unless liveHeaderText wrote them.
std::optional<LiveHeader> parseLiveHeader(std::string_view text);

}  // namespace dch

#endif  // DCH_LINK_LIVE_HEADER_H
