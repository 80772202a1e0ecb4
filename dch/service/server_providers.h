// server_providers.h: passes what sites say of their providers from the link to the channel, and
// from the channel to the link.
#ifndef DCH_SERVICE_SERVER_PROVIDERS_H
#define DCH_SERVICE_SERVER_PROVIDERS_H

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>

#include "dch/core/counters.h"
#include "dch/core/provider_fact.h"
#include "dch/link/site_providers.h"
#include "dch/net/channel.h"
#include "dch/net/event_loop.h"
#include "dch/net/next_turn.h"
#include "dch/net/waker.h"

namespace dch {

// Some at a time, so that the programs of this machine do not wait for them. One thread, the
// loop's.
class ServerProviders {
 public:
  // What is passed in outlives it. Throws std::system_error or std::bad_alloc.
  ServerProviders(EventLoop& loop, std::shared_ptr<SiteProviders> providers, Channel& channel);
  ~ServerProviders() { _providers->others.setWake(nullptr); }
  ServerProviders(const ServerProviders&) = delete;
  ServerProviders& operator=(const ServerProviders&) = delete;

  // Every second: what has changed since goes to the link.
  void tick() noexcept { pass(); }

  // Brings the counters up to date.
  void setCounters(Counters* counters) const;

 private:
  using Clock = std::chrono::steady_clock;

  void pass() noexcept;
  bool tell(Clock::time_point end);
  bool take(Clock::time_point end);
  void takeNext();

  const std::shared_ptr<SiteProviders> _providers;
  Channel& _channel;
  std::optional<ProviderNews> _news;  // of which some were taken
  std::size_t _taken = 0;
  NextTurn _next;
  Waker _waker;
};

}  // namespace dch

#endif  // DCH_SERVICE_SERVER_PROVIDERS_H
