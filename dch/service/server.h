// server.h: the running server: the channel, its log, and what the operator does to it.
#ifndef DCH_SERVICE_SERVER_H
#define DCH_SERVICE_SERVER_H

#include "dch/core/counters.h"
#include "dch/net/alarm.h"
#include "dch/net/channel.h"
#include "dch/net/event_loop.h"
#include "dch/net/signals.h"
#include "dch/service/event_log.h"
#include "dch/service/log_output.h"
#include "dch/store/memory_store.h"

namespace dch {

// Everything happens on the thread that makes it and calls run().
class Server {
 public:
  // `actions` outlives it. Throws std::runtime_error when it cannot serve.
  Server(ServedPort&& port, const ActionList& actions, bool isVerbose);

  // Says on standard output that it is ready, and serves until SIGTERM or SIGINT. From then on the
  // signals that it takes are blocked: the process is to end.
  void run();

 private:
  static constexpr std::chrono::seconds tickPause{1};

  void takeSignal(int signal);
  void stop(int signal);
  void report();
  void tick();
  void countDroppedLines();

  LogOutput _output;
  const EventLog _log;
  EventLoop _loop;
  Signals _signals;
  Counters _counters;
  MemoryStore _store;
  const PeerAddress _address;
  Channel _channel;
  Alarm _tick;
};

}  // namespace dch

#endif  // DCH_SERVICE_SERVER_H
