// live_rows.h: the live rows of a server, where the channel's thread and the link's meet.
#ifndef DCH_LINK_LIVE_ROWS_H
#define DCH_LINK_LIVE_ROWS_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "dch/between/doorbell.h"
#include "dch/core/observer.h"
#include "dch/link/live_counts.h"
#include "dch/link/live_out.h"
#include "dch/link/live_outbox.h"
#include "dch/link/live_topics.h"
#include "dch/link/waiting_live_rows.h"

namespace dch {

// Looks on at the core for the link. Neither thread waits for the other.
class LiveRows final : public Observer {
 public:
  // Of this site, in this run of it.
  LiveRows(const std::string& site, const Epoch& run)
      : _out(site, run, [this](OutgoingLiveRow&& row) { return put(std::move(row)); }),
        _waiting(site) {}
  LiveRows(const LiveRows&) = delete;
  LiveRows& operator=(const LiveRows&) = delete;

  // The channel's thread.

  void rowKept(const Source& source, std::string_view message, std::string_view former,
               Time time) noexcept override {
    _out.rowKept(source, message, former, time);
  }
  void statusChanged(const SourceNames&, short) noexcept override {}
  void topicChanged(std::string_view topic, bool isWanted) noexcept override;
  std::uint64_t lostOnTheWayOut() const { return _out.lost(); }
  // Of those that were wanted when they came.
  LiveCounts& counts() { return _counts; }
  // What wakes the link's thread; before the first call of an observer.
  void setWakeLink(std::function<void()> wake) { _bell.setWake(std::move(wake)); }

  // The link's thread.

  // From now on it is woken when there is something. It looks once more then.
  void await() noexcept { _bell.await(); }

  // As each of them says.

  LiveInterest& interest() { return _out.interest(); }
  LiveOutbox& outbox() { return _outbox; }
  LiveTopics& topics() { return _topics; }
  WaitingLiveRows& waiting() { return _waiting; }

 private:
  bool put(OutgoingLiveRow&& row) noexcept;

  Doorbell _bell;
  LiveOutbox _outbox;
  LiveOut _out;
  LiveTopics _topics;
  LiveCounts _counts;
  WaitingLiveRows _waiting;
};

}  // namespace dch

#endif  // DCH_LINK_LIVE_ROWS_H
