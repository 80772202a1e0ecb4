#include "dch/web/web_server.h"

#include <exception>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "dch/give_way.h"
#include "dch/net/event_loop.h"
#include "dch/net/waker.h"
#include "dch/web/channel_view.h"
#include "dch/web/connections.h"
#include "dch/web/kept_rows.h"
#ifdef ZORD410_SQLITE
#include "dch/web/history_rows.h"
#endif
#include "dch/web/live_streams.h"
#include "dch/web/router.h"

namespace dch {

namespace {

std::unique_ptr<KeptRows> makeKeptRows(
    [[maybe_unused]] EventLoop& loop, [[maybe_unused]] const std::function<StatePlaces()>& places) {
#ifdef ZORD410_SQLITE
  if (places) return std::make_unique<HistoryRows>(loop, places);
#endif
  return std::make_unique<NoKeptRows>();
}

}  // namespace

class WebServer::Thread {
 public:
  Thread(WebPort&& port, WebSettings&& settings, const WebSources& sources)
      : _loop(settings.limits.connections * Connection::mostTimers),
        _live(_loop, sources.counters),
        _view(_loop, sources.channel, _live),
        _rows(makeKeptRows(_loop, sources.statePlaces)),
        _router(
            {_view, _live, *_rows, sources.counters, sources.health, sources.facts, sources.sites}),
        _connections(
            _loop, std::move(port.listener), settings.limits,
            [this](const WebRequest& request, const Connections::Respond& respond) {
              _router.handle(request, respond);
            },
            sources.counters),
        _ordered(_loop, [this] { obey(); }) {
    _live.setView(&_view);
    _router.setAccess(std::move(settings.access));
    _thread = std::thread([this] { run(); });
  }

  ~Thread() {
    {
      const std::lock_guard lock(_mutex);
      _isStopping = true;
    }
    _ordered.wake();
    _thread.join();
  }
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  void wake() noexcept { _view.wake(); }

  void setAccess(Access access) {
    {
      const std::lock_guard lock(_mutex);
      _access = std::move(access);
    }
    _ordered.wake();
  }

 private:
  // What a call could not do for want of memory is done with.
  void run() noexcept {
    giveWay();
    for (;;) {
      try {
        _loop.run();
        return;
      } catch (const std::exception&) {
        continue;
      }
    }
  }

  void obey() {
    const std::lock_guard lock(_mutex);
    if (_isStopping) return _loop.stop();
    if (!_access || *_access == _router.access()) return;
    _router.setAccess(*std::exchange(_access, std::nullopt));
    _live.endAll();
  }

  std::mutex _mutex;  // guards what follows
  std::optional<Access> _access;
  bool _isStopping = false;

  EventLoop _loop;
  LiveStreams _live;
  ChannelView _view;
  const std::unique_ptr<KeptRows> _rows;
  Router _router;
  Connections _connections;
  Waker _ordered;
  std::thread _thread;
};

WebServer::WebServer(WebPort&& port, WebSettings&& settings, const WebSources& sources)
    : _thread(std::make_unique<Thread>(std::move(port), std::move(settings), sources)) {}

WebServer::~WebServer() = default;

void WebServer::wake() noexcept {
  _thread->wake();
}

void WebServer::setAccess(Access access) {
  _thread->setAccess(std::move(access));
}

}  // namespace dch
