#include "dch/service/server_providers.h"

#include <new>
#include <utility>

namespace dch {

namespace {

// Of one turn, each way.
constexpr std::chrono::microseconds longestTurn{200};

// That are told to the link at once.
constexpr std::size_t mostFacts = 64;

}  // namespace

ServerProviders::ServerProviders(EventLoop& loop, std::shared_ptr<SiteProviders> providers,
                                 Channel& channel)
    : _providers(std::move(providers)),
      _channel(channel),
      _next(loop, [this] { pass(); }),
      _waker(loop, [this] { pass(); }) {
  _providers->others.setWake([this] { _waker.wake(); });
}

// For want of memory it goes on with the next tick.
void ServerProviders::pass() noexcept {
  try {
    const bool hasMoreToTell = tell(Clock::now() + longestTurn);
    const bool hasMoreToTake = take(Clock::now() + longestTurn);
    if (hasMoreToTell || hasMoreToTake) _next.ask();
  } catch (const std::bad_alloc&) {
  }
  _channel.settle();
}

// Whether there may be more. While the link has not taken what it was told it waits.
bool ServerProviders::tell(Clock::time_point end) {
  while (Clock::now() < end) {
    if (!_providers->own.hasRoom({})) return false;
    std::optional<ProviderNews> news =
        _providers->changed.take(_channel.core().registry(), mostFacts);
    if (!news) return false;
    if (!_providers->own.put(*std::move(news))) _providers->changed.beginAnew();
  }
  return true;
}

// Subscribers of status are told of it, so it waits while many are being told of others.
bool ServerProviders::take(Clock::time_point end) {
  while (Clock::now() < end && _channel.core().hasRoomToPublish()) {
    if (!_news) _news = _providers->others.take();
    if (_news)
      takeNext();
    else if (!_channel.remoteProviders().settle())
      return false;
  }
  return true;
}

// Of what is being taken: how it begins, a fact, or its end.
void ServerProviders::takeNext() {
  RemoteProviders& known = _channel.remoteProviders();
  if (_taken == 0 && _news->kind == ProviderNews::Kind::first) known.begin(_news->site);
  if (_taken == 0 && _news->kind == ProviderNews::Kind::silent) known.silent(_news->site);
  if (_taken < _news->facts.size()) {
    known.take(_news->site, _news->facts[_taken]);
    if (++_taken < _news->facts.size()) return;
  }
  if (_news->isAll) known.end(_news->site);
  _news.reset();
  _taken = 0;
}

void ServerProviders::setCounters(Counters* counters) const {
  counters->set(Counter::linkProvidersRefused, _channel.remoteProviders().refused());
}

}  // namespace dch
