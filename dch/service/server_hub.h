// server_hub.h: lets the store of a hub keep the rows of other sites.
#ifndef DCH_SERVICE_SERVER_HUB_H
#define DCH_SERVICE_SERVER_HUB_H

#include <cstddef>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "dch/core/counters.h"
#include "dch/core/store.h"
#include "dch/link/link_log.h"
#include "dch/link/link_settings.h"
#include "dch/link/row_collector.h"
#include "dch/net/event_loop.h"
#include "dch/net/waker.h"
#include "dch/store/file_place.h"

namespace dch {

// One thread, the loop's.
class ServerHub final : private StoreClient {
 public:
  // `places` is where the store's file is. `store` and `log` outlive
  // it. Throws std::system_error or std::bad_alloc.
  ServerHub(EventLoop& loop, Store& store, const LinkSettings& settings,
            std::function<StatePlaces()> places, LinkLog& log);

  // Every second: what could not be kept is tried again.
  void tick() noexcept;

  // As of RowCollector.
  void setAside(bool isAside) noexcept { _collector.setAside(isAside); }
  void setSites(std::shared_ptr<const std::vector<SiteState>> sites) noexcept {
    _collector.setSites(std::move(sites));
  }
  void stop() noexcept { _collector.stop(); }
  bool waitForEnd(std::chrono::milliseconds atMost) { return _collector.waitForEnd(atMost); }

  // Says of the sites how far the hub is with them. Any thread.
  void setUncollected(std::vector<SiteState>* sites) const;

  // Brings the counters up to date.
  void setCounters(Counters* counters) const;

 private:
  void conclude(Entry&& entry, bool isKept) noexcept override;
  void append(std::vector<Change>&& changes) noexcept;

  Store& _store;
  std::size_t _underWay = 0;
  std::vector<Change> _notKept;
  Waker _waker;
  RowCollector _collector;
};

}  // namespace dch

#endif  // DCH_SERVICE_SERVER_HUB_H
