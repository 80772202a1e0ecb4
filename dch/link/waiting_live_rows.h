// waiting_live_rows.h: live rows of other sites, until the channel has time for them.
#ifndef DCH_LINK_WAITING_LIVE_ROWS_H
#define DCH_LINK_WAITING_LIVE_ROWS_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "dch/core/epoch.h"
#include "dch/core/remote_handles.h"
#include "dch/core/text_map.h"

namespace dch {

struct IncomingLiveRow {
  LiveRow row;
  Epoch run;                // as in LiveHeader
  std::uint64_t count = 0;  // likewise
};

// A site has no more than a quarter of the room: one that sends without an end loses rows of its
// own. What is lost here is missing in LiveHeader::count, and is counted by that. Any thread, but
// where it is said.
class WaitingLiveRows {
 public:
  struct Limits {
    std::size_t rows = 4'096;
    std::size_t bytes = std::size_t{16} << 20;
  };

  explicit WaitingLiveRows(std::string ownSite) : WaitingLiveRows(std::move(ownSite), Limits()) {}
  WaitingLiveRows(std::string ownSite, const Limits& limits)
      : _ownSite(std::move(ownSite)), _limits(limits) {}

  // While it is closed, as it is at first, all that comes is thrown away.
  void open();
  void close() noexcept;

  // What has come under that subject, with that header Zord-Live: any bytes.
  void put(std::string_view subject, std::string_view header, std::string_view message) noexcept;

  // `wake` is called when there are rows after there were none; null: nobody takes them.
  void setWake(std::function<void()> wake) noexcept;
  // The one that has waited longest. The thread that is woken.
  std::optional<IncomingLiveRow> take() noexcept;

  // What was no row.
  std::uint64_t refused() const;

 private:
  struct Share {
    std::size_t rows = 0;
    std::size_t bytes = 0;
  };

  bool hasRoomFor(const Share& site, std::size_t bytes) const;
  void keep(IncomingLiveRow&& row);

  const std::string _ownSite;
  const Limits _limits;
  mutable std::mutex _mutex;
  std::function<void()> _wake;
  bool _isOpen = false;
  std::deque<IncomingLiveRow> _rows;
  Share _all;
  TextMap<Share> _sites;  // that have rows here
  std::uint64_t _refused = 0;
};

}  // namespace dch

#endif  // DCH_LINK_WAITING_LIVE_ROWS_H
