// channel_view.h: where the web meets the channel, as far as it is done on the web's thread.
#ifndef DCH_WEB_CHANNEL_VIEW_H
#define DCH_WEB_CHANNEL_VIEW_H

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "dch/net/alarm.h"
#include "dch/net/event_loop.h"
#include "dch/net/next_turn.h"
#include "dch/net/waker.h"
#include "dch/web/channel_side.h"
#include "dch/web/questions.h"

namespace dch {

// Who is told what happens live.
class LiveClient {
 public:
  virtual void happened(const LiveEvent& event) noexcept = 0;

  // Some events were told, or the topics are in force now: a moment to look at what was lost of
  // each topic, and at LiveFeed::inForce().
  virtual void told() noexcept = 0;

 protected:
  ~LiveClient() = default;
};

// Made before the web's thread and gone after it. One thread, the web's, but for wake().
class ChannelView {
 public:
  // So many events are told before others have their turn.
  static constexpr std::size_t mostEvents = 256;
  // Between two looks while something happens: to wake this thread for each row costs the channel
  // more than the row.
  static constexpr std::chrono::milliseconds pause{5};

  // `loop` is the web's. All outlive it. Throws std::system_error or std::bad_alloc.
  ChannelView(EventLoop& loop, ChannelSide& channel, LiveClient& client);

  // Any thread: what ChannelSide::attach() is given. Does not fail.
  void wake() noexcept { _waker.wake(); }

  // See Questions::ask.
  void askForSnapshot(Questions<Snapshot>::Receiver receiver);
  void askForFigures(Questions<Figures>::Receiver receiver);

  // See LiveFeed::watch and LiveFeed::inForce.
  std::uint64_t watch(const LiveFeed::Topics& topics);
  std::uint64_t inForce() const { return _channel._live.inForce(); }

 private:
  void look();
  std::size_t tellSome() noexcept;

  ChannelSide& _channel;
  LiveClient& _client;
  Questions<Snapshot> _snapshots;
  Questions<Figures> _figures;
  NextTurn _more;
  Alarm _nextLook;
  Waker _waker;
};

}  // namespace dch

#endif  // DCH_WEB_CHANNEL_VIEW_H
