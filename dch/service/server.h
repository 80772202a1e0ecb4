// server.h: the running server: the channel, its log, and what the operator does to it.
#ifndef DCH_SERVICE_SERVER_H
#define DCH_SERVICE_SERVER_H

#include <optional>
#include <string>

#include "dch/core/counters.h"
#include "dch/core/epoch.h"
#include "dch/net/alarm.h"
#include "dch/net/channel.h"
#include "dch/net/event_loop.h"
#include "dch/net/signals.h"
#include "dch/service/configuration.h"
#include "dch/service/event_log.h"
#include "dch/service/log_output.h"
#include "dch/service/options.h"
#include "dch/service/server_link.h"
#include "dch/service/server_page.h"
#include "dch/service/server_store.h"
#include "dch/service/service_manager.h"

namespace dch {

// Everything happens on the thread that makes it and calls run().
class Server {
 public:
  // The state is in the file `statePath`, or in memory without one. `configuration` is what
  // `options` say. Throws std::runtime_error when it cannot serve, as StateFileError because of the
  // state.
  Server(ServedPort&& port, const std::optional<std::string>& statePath, const Options& options,
         Configuration configuration);

  ~Server();

  // Says on standard output, and to the service manager, that it is ready, on the former also where
  // its state and its page are, and serves until SIGTERM or SIGINT.
  void run();

 private:
  static constexpr std::chrono::seconds tickPause{1};
  static constexpr int ticksBetweenStatus = 5;

  void announce();
  void takeSignal(int signal);
  void stop(int signal);
  void reload();
  void readAgain();
  void apply(Configuration&& fresh);
  ChannelLimits limitsWithRoom(const Configuration& configuration);
  void say(Priority priority, const std::string& sentences);
  void report();
  void tick();
  void showStatus();
  void countDroppedLines();
  void setCounters();

  const Options _options;
  Configuration _configuration;
  LogOutput _output;
  EventLog _log;
  EventLoop _loop;
  ServiceManager _manager;
  Signals _signals;
  Counters _counters;
  const PeerAddress _address;
  const std::vector<PortSetting> _portSettings;
  const std::optional<std::string> _statePath;
  const Epoch _epoch = newEpoch();
  ServerStore _store;
  ServerLink _link;
  std::size_t _webConnections = 0;  // for which there is room
  ServerPage _page;
  Channel _channel;
  Alarm _tick;
  int _ticks = 0;
};

}  // namespace dch

#endif  // DCH_SERVICE_SERVER_H
