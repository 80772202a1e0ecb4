// server_page.h: the page of the running server, if it has one.
#ifndef DCH_SERVICE_SERVER_PAGE_H
#define DCH_SERVICE_SERVER_PAGE_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dch/core/core.h"
#include "dch/core/site_state.h"
#include "dch/net/event_loop.h"
#include "dch/web/channel_side.h"
#include "dch/web/health.h"
#include "dch/web/web_port.h"
#include "dch/web/web_server.h"

namespace dch {

// Made before the channel, which has its observer, and gone after it. One thread, the loop's.
class ServerPage {
 public:
  // Takes the port, if there is an address. Throws std::runtime_error or std::bad_alloc.
  ServerPage(EventLoop& loop, Counters& counters, const std::optional<WebAddress>& address);

  // Null where there is no page.
  Observer* observer() { return _channel ? &_channel->observer() : nullptr; }

  struct Settings {
    Access access;
    std::size_t connections;  // at a time
    std::string state;        // where it is, for those who read the page
    // As of WebSources.
    std::function<StatePlaces()> places;
    std::function<std::shared_ptr<const std::vector<SiteState>>()> sites;
  };
  // Serves it. `setGauges` brings the counters up to date.
  void start(const Core& core, std::function<void()> setGauges, const Settings& settings);

  // Before the channel goes. May be called again.
  void stop() noexcept;

  // In force soon.
  void setAccess(const Access& access);

  // Every second.
  void tick(const Health::Store& store) noexcept;

  // Says where it is; nothing without one.
  std::string announcement() const;

 private:
  Counters& _counters;
  std::optional<ChannelSide> _channel;
  std::optional<WebPort> _port;
  Health _health;
  std::unique_ptr<WebServer> _server;
};

}  // namespace dch

#endif  // DCH_SERVICE_SERVER_PAGE_H
