#include "dch/service/server_live.h"

#include <chrono>
#include <new>
#include <optional>
#include <string>
#include <utility>

namespace dch {

namespace {

using Clock = std::chrono::steady_clock;

// Of one turn.
constexpr int mostRows = 64;
constexpr std::chrono::microseconds longestTurn{200};

}  // namespace

ServerLive::ServerLive(EventLoop& loop, std::shared_ptr<LiveRows> rows, Channel& channel)
    : _rows(std::move(rows)),
      _channel(channel),
      _next(loop, [this] { takeSome(); }),
      _waker(loop, [this] { takeSome(); }) {
  _rows->waiting().setWake([this] { _waker.wake(); });
}

// While many subscribers are being sent earlier rows the others wait, and the oldest of them are
// looked at first then.
void ServerLive::takeSome() noexcept {
  const auto end = Clock::now() + longestTurn;
  bool isEmpty = false;
  for (int row = 0; row < mostRows && _channel.remoteRows().hasRoom() && Clock::now() < end;
       ++row) {
    std::optional<IncomingLiveRow> next = _rows->waiting().take();
    isEmpty = !next;
    if (isEmpty) break;
    try {
      pass(*std::move(next));
    } catch (const std::bad_alloc&) {
      ++_missed;
    }
  }
  if (!isEmpty) _next.ask();
  _channel.settle();
}

void ServerLive::pass(IncomingLiveRow&& row) {
  const std::string topic = topicOf(row.row.application, row.row.group);
  if (!_channel.core().hasSubscribers(topic)) return;
  const LiveCounts::Seen seen = _rows->counts().note(topic, row.row.site, row.run, row.count);
  _missed += seen.missed;
  if (seen.isNew) _channel.remoteRows().take(std::move(row.row));
}

// Each time that they are twice as many.
void ServerLive::tick(const Log& log) noexcept {
  const std::uint64_t withoutHandle = _channel.remoteRows().figures().withoutHandle;
  if (withoutHandle >= _withoutHandleToTell) {
    _withoutHandleToTell = 2 * withoutHandle;
    log.warn(
        "link: %llu live rows of other sites so far came to no subscriber: there is no room for "
        "their sources",
        static_cast<unsigned long long>(withoutHandle));
  }
  const std::uint64_t topics = _rows->topics().refused();
  if (topics < _topicsToTell) return;
  _topicsToTell = 2 * topics;
  log.warn(
      "link: subscribers want rows of more groups than other sites can be asked for, %llu so far; "
      "they get those of this site alone",
      static_cast<unsigned long long>(topics));
}

void ServerLive::setCounters(Counters* counters) const {
  const RemoteRowsIn::Figures& in = _channel.remoteRows().figures();
  const LiveOutbox::Figures out = _rows->outbox().figures();
  counters->set(Counter::linkLiveSent, out.sent);
  counters->set(Counter::linkLivePushed, in.pushed);
  counters->set(Counter::linkLiveLost, _rows->lostOnTheWayOut() + out.lost + _missed + in.lost);
  counters->set(Counter::linkLiveRefused, _rows->waiting().refused() + in.refused);
  counters->set(Counter::linkSubscriptionsRefused, _rows->topics().refused());
  counters->set(Counter::linkHandlesRefused, in.withoutHandle);
}

}  // namespace dch
