// server_link.h: the link of the running server with others, if it has one.
#ifndef DCH_SERVICE_SERVER_LINK_H
#define DCH_SERVICE_SERVER_LINK_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dch/core/counters.h"
#include "dch/core/epoch.h"
#include "dch/core/log.h"
#include "dch/core/observers.h"
#include "dch/core/site_state.h"
#include "dch/core/store.h"
#include "dch/link/link_settings.h"
#include "dch/net/event_loop.h"
#include "dch/service/server_store.h"

namespace dch {

class Channel;
class LinkLog;
class LiveRows;
class RowPublisher;
class ServerHub;
class ServerLive;
class ServerProviders;
class SiteLink;
struct SiteProviders;

// Has the store keep how far its rows are published, and in a hub the rows of others. One thread,
// the loop's.
class ServerLink : private StoreClient {
 public:
  // Links nothing where there are no servers. `run` names this run of the server. `loop`, `store`
  // and `log` outlive it. Throws std::bad_alloc.
  ServerLink(EventLoop& loop, ServerStore& store, const Log& log, const LinkSettings& settings,
             const Epoch& run);
  // Waits for the end of what stop() has begun, which it calls if nobody has. What the store is to
  // keep then is appended to it.
  ~ServerLink();

  // Whom the channel is to tell what it does, beside `page`, which may be null. Gone after the
  // channel.
  Observers observersWith(Observer* page);

  // When the store has told what it has. `channel` gets live rows and providers of other sites
  // until stop(), or is null. Throws std::system_error or std::bad_alloc.
  void start(Channel* channel);

  // Every second.
  void tick() noexcept;

  // Begins to publish what is left, if that takes no more than a second. Waits for nothing; the
  // destructor waits.
  void stop() noexcept;

  // The other sites, by name; null without a link. Throws std::bad_alloc. Any thread, once this is
  // started.
  std::shared_ptr<const std::vector<SiteState>> sites() const;

  // Lines on them for the operator; nothing without a link. Throws std::bad_alloc.
  std::string report() const;

  // Brings the counters up to date.
  void setCounters(Counters* counters) const;

 private:
  void conclude(Entry&& entry, bool isKept) noexcept override;
  void keepPosition() noexcept;
  void heedSites() noexcept;
  void tellOfLostRows() noexcept;
  void writeEvents() noexcept;

  EventLoop& _loop;
  ServerStore& _store;
  const Log& _log;
  const LinkSettings _settings;
  const Epoch _run;
  std::shared_ptr<LiveRows> _liveRows;            // null without a link
  std::shared_ptr<SiteProviders> _siteProviders;  // likewise
  std::optional<KeptRowsSource> _rows;
  std::unique_ptr<LinkLog> _lines;
  std::unique_ptr<RowPublisher> _publisher;
  std::unique_ptr<ServerHub> _hub;
  std::unique_ptr<SiteLink> _sites;
  std::unique_ptr<ServerLive> _live;
  std::unique_ptr<ServerProviders> _providers;
  std::int64_t _keptPosition = 0;  // that the store has kept, or is about to
  std::uint64_t _lostRowsToTell = 1;
};

}  // namespace dch

#endif  // DCH_SERVICE_SERVER_LINK_H
