// connections_thread.h: connections of browsers beside a test, without what is behind the page.
#ifndef DCH_TESTKIT_CONNECTIONS_THREAD_H
#define DCH_TESTKIT_CONNECTIONS_THREAD_H

#include <utility>

#include "dch/testkit/loop_thread.h"
#include "dch/web/connections.h"
#include "dch/web/web_port.h"

namespace dch::testkit {

// `handle` is called on their thread.
class ConnectionsThread {
 public:
  ConnectionsThread(const WebLimits& limits, Connections::Handle handle)
      : _connections(_loop, std::move(_port.listener), limits, std::move(handle), counters) {}

  Counters counters;

 private:
  WebPort _port = openWebPort({"127.0.0.1", 0});
  EventLoop _loop;

 public:
  const int port = _port.address.port;

 private:
  Connections _connections;
  const LoopThread _thread{_loop};
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_CONNECTIONS_THREAD_H
