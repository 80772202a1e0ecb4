// web_server.h: the page and what is behind it, on a thread of its own.
#ifndef DCH_WEB_WEB_SERVER_H
#define DCH_WEB_WEB_SERVER_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "dch/core/counters.h"
#include "dch/core/site_state.h"
#include "dch/store/file_place.h"
#include "dch/web/access.h"
#include "dch/web/channel_side.h"
#include "dch/web/health.h"
#include "dch/web/state_json.h"
#include "dch/web/web_limits.h"
#include "dch/web/web_port.h"

namespace dch {

// What the web reads, all of which outlives it.
struct WebSources {
  ChannelSide& channel;
  Counters& counters;
  const Health& health;
  ServerFacts facts;
  // Where the file is that rows are in, on any thread; null when they are not kept.
  std::function<StatePlaces()> statePlaces;
  // The other sites, by name, on any thread; null where there is no link.
  std::function<std::shared_ptr<const std::vector<SiteState>>()> sites = [] { return nullptr; };
};

struct WebSettings {
  Access access;
  WebLimits limits;
};

class WebServer {
 public:
  // Serves the port from now on. Throws std::runtime_error or std::bad_alloc.
  WebServer(WebPort&& port, WebSettings&& settings, const WebSources& sources);
  // Ends all connections.
  ~WebServer();
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  // What ChannelSide::attach() is given. Any thread; does not fail.
  void wake() noexcept;

  // In force soon; those who are told live come again. Any thread. Throws std::bad_alloc.
  void setAccess(Access access);

 private:
  class Thread;

  const std::unique_ptr<Thread> _thread;
};

}  // namespace dch

#endif  // DCH_WEB_WEB_SERVER_H
