// connections.h: the connections of browsers, no more than there is room for.
#ifndef DCH_WEB_CONNECTIONS_H
#define DCH_WEB_CONNECTIONS_H

#include <cstddef>
#include <functional>
#include <memory>
#include <unordered_map>

#include "dch/core/counters.h"
#include "dch/net/alarm.h"
#include "dch/net/descriptor.h"
#include "dch/net/event_loop.h"
#include "dch/net/watched_socket.h"
#include "dch/web/connection.h"

namespace dch {

// One thread, the web's.
class Connections : public ConnectionClient {
 public:
  using Respond = ConnectionClient::Respond;
  using Handle = std::function<void(const WebRequest&, Respond)>;

  // Serves `listener`. `handle` answers requests; it and `counters` outlive the loop.
  Connections(EventLoop& loop, Descriptor listener, const WebLimits& limits, Handle handle,
              Counters& counters);
  // Ends them.
  ~Connections();
  Connections(const Connections&) = delete;
  Connections& operator=(const Connections&) = delete;

 private:
  void accept();
  void acceptSome();
  void add(Descriptor socket);
  bool makeRoom();
  std::shared_ptr<Connection> longestSince(Connection::Moment (Connection::*since)() const) const;
  void requested(const WebRequest& request, Respond respond) override;
  void ended(Connection* connection) override;

  const WebLimits _limits;
  const Handle _handle;
  Counters& _counters;
  EventLoop& _loop;
  WatchedSocket _listener;
  Alarm _pause;
  std::unordered_map<Connection*, std::shared_ptr<Connection>> _all;
};

}  // namespace dch

#endif  // DCH_WEB_CONNECTIONS_H
