#include "dch/web/channel_view.h"

#include <utility>

namespace dch {

ChannelView::ChannelView(EventLoop& loop, ChannelSide& channel, LiveClient& client)
    : _channel(channel),
      _client(client),
      _snapshots(loop, channel._snapshots, [this] { _channel._waker.wake(); }),
      _figures(loop, channel._figures, [this] { _channel._waker.wake(); }),
      _more(loop, [this] { look(); }),
      _waker(loop, [this] { look(); }) {
  channel._bell.await();
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

// What comes behind the last look rings the bell.
void ChannelView::look() {
  if (takeSome()) return _more.ask();
  _channel._bell.await();
  if (takeSome()) _more.ask();
  if (_channel._live.offerTopics()) _channel._waker.wake();
}

// Returns whether there may be more.
bool ChannelView::takeSome() noexcept {
  _snapshots.collect();
  _figures.collect();
  return tellSome();
}

// Returns whether there may be more.
bool ChannelView::tellSome() noexcept {
  std::size_t count = 0;
  for (; count < mostEvents; ++count) {
    const LiveEvent* const event = _channel._live.first();
    if (event == nullptr) break;
    _client.happened(*event);
    _channel._live.take();
  }
  _client.told();
  return count == mostEvents;
}

}  // namespace dch
