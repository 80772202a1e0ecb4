// server_live.h: passes live rows of other sites from the link to the channel.
#ifndef DCH_SERVICE_SERVER_LIVE_H
#define DCH_SERVICE_SERVER_LIVE_H

#include <cstdint>
#include <memory>

#include "dch/core/counters.h"
#include "dch/core/log.h"
#include "dch/link/live_rows.h"
#include "dch/net/channel.h"
#include "dch/net/event_loop.h"
#include "dch/net/next_turn.h"
#include "dch/net/waker.h"

namespace dch {

// Some at a time, so that the programs of this machine do not wait for them. One thread, the
// loop's.
class ServerLive {
 public:
  // What is passed in outlives it. Throws std::system_error or std::bad_alloc.
  ServerLive(EventLoop& loop, std::shared_ptr<LiveRows> rows, Channel& channel);
  ~ServerLive() { _rows->waiting().setWake(nullptr); }
  ServerLive(const ServerLive&) = delete;
  ServerLive& operator=(const ServerLive&) = delete;

  // Every second.
  void tick(const Log& log) noexcept;

  // Brings the counters up to date.
  void setCounters(Counters* counters) const;

 private:
  void takeSome() noexcept;
  void pass(IncomingLiveRow&& row);

  const std::shared_ptr<LiveRows> _rows;
  Channel& _channel;
  std::uint64_t _missed = 0;
  std::uint64_t _withoutHandleToTell = 1;
  std::uint64_t _topicsToTell = 1;
  NextTurn _next;
  Waker _waker;
};

}  // namespace dch

#endif  // DCH_SERVICE_SERVER_LIVE_H
