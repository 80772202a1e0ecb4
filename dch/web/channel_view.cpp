#include "dch/web/channel_view.h"

#include <utility>

namespace dch {

ChannelView::ChannelView(EventLoop& loop, ChannelSide& channel, LiveClient& client)
    : _channel(channel),
      _client(client),
      _snapshots(loop, channel._snapshots, [this] { _channel._waker.wake(); }),
      _figures(loop, channel._figures, [this] { _channel._waker.wake(); }),
      _more(loop, [this] { look(); }),
      _nextLook(loop, [this] { look(); }),
      _waker(loop, [this] { look(); }) {
  channel._answered.await();
  channel._happened.await();
}

void ChannelView::askForSnapshot(Questions<Snapshot>::Receiver receiver) {
  _snapshots.ask(std::move(receiver));
}

void ChannelView::askForFigures(Questions<Figures>::Receiver receiver) {
  _figures.ask(std::move(receiver));
}

std::uint64_t ChannelView::watch(const LiveFeed::Topics& topics) {
  const std::uint64_t number = _channel._live.watch(topics);
  if (_channel._live.offerTopics()) _channel._waker.wake();
  return number;
}

// What comes behind the last look rings a bell, but for what happens while the next look is due.
void ChannelView::look() {
  _channel._answered.await();
  _snapshots.collect();
  _figures.collect();
  const std::size_t told = tellSome();
  if (_channel._live.offerTopics()) _channel._waker.wake();
  if (told == mostEvents) return _more.ask();
  if (_nextLook.isSet()) return;
  if (told > 0) return _nextLook.set(pause);
  _channel._happened.await();
  // What came since the look before has rung for nobody: also that topics are in force.
  if (tellSome() > 0) _more.ask();
}

// Returns how many; there may be more when they are mostEvents.
std::size_t ChannelView::tellSome() noexcept {
  std::size_t count = 0;
  for (; count < mostEvents; ++count) {
    const LiveEvent* const event = _channel._live.first();
    if (event == nullptr) break;
    _client.happened(*event);
    _channel._live.take();
  }
  _client.told();
  return count;
}

}  // namespace dch
