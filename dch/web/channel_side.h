// channel_side.h: where the web meets the channel, as far as it is done on the channel's thread.
#ifndef DCH_WEB_CHANNEL_SIDE_H
#define DCH_WEB_CHANNEL_SIDE_H

#include <functional>
#include <optional>

#include "dch/between/doorbell.h"
#include "dch/core/core.h"
#include "dch/core/observer.h"
#include "dch/net/event_loop.h"
#include "dch/net/next_turn.h"
#include "dch/net/waker.h"
#include "dch/web/earlier_numbers.h"
#include "dch/web/enquiry.h"
#include "dch/web/live_feed.h"
#include "dch/web/snapshot.h"
#include "dch/web/snapshot_maker.h"

namespace dch {

// Made before the channel, which has its observer, and gone after it. The web's thread meets it in
// a ChannelView. All else is the channel's thread's; what it does for the web it does piece by
// piece, and it never waits for the web.
class ChannelSide final : private Observer {
 public:
  // `loop` is the channel's. Throws std::system_error or std::bad_alloc.
  ChannelSide(EventLoop& loop, Counters& counters);

  Observer& observer() { return *this; }

  // Begins to answer. `setGauges` brings the table of counters up to date, and throws nothing.
  // `wakeWeb` has the web's thread look at its ChannelView; both are called on the channel's
  // thread. Before the web's thread begins.
  void attach(const Core& core, std::function<void()> setGauges, std::function<void()> wakeWeb);

  // Answers nothing any more, and wakes nobody. After the end of the web's thread.
  void detach() noexcept;

 private:
  friend class ChannelView;

  using Clock = std::chrono::steady_clock;

  void rowKept(const Source& source, std::string_view message, std::string_view former,
               Time time) noexcept override;
  void statusChanged(const SourceNames& names, short requestCode) noexcept override;

  void look() noexcept;
  void answerFigures() noexcept;
  void makeSnapshot() noexcept;
  bool addToSnapshot();

  Doorbell _answered;  // both are the web's
  Doorbell _happened;
  LiveFeed _live;
  EarlierNumbers _earlier;
  Enquiry<Snapshot> _snapshots;
  Enquiry<Figures> _figures;
  const Core* _core = nullptr;
  std::function<void()> _setGauges;
  std::optional<SnapshotMaker> _maker;
  bool _isMaking = false;
  Clock::duration _cost{};  // of the snapshot that is being made
  NextTurn _making;
  Waker _waker;  // by which the web wakes this thread
};

}  // namespace dch

#endif  // DCH_WEB_CHANNEL_SIDE_H
