// service_manager.h: what the server tells the service manager that started it, if one did.
#ifndef DCH_SERVICE_SERVICE_MANAGER_H
#define DCH_SERVICE_SERVICE_MANAGER_H

#include <sys/un.h>

#include <chrono>
#include <optional>
#include <string>

#include "dch/net/alarm.h"
#include "dch/net/descriptor.h"
#include "dch/net/event_loop.h"

namespace dch {

// Speaks as sd_notify(3) does, but never waits: a service manager that does not read, or whose
// socket is gone, does not hold the server up. The newest state and the newest status that it has
// not taken are told again by flush(). Without a service manager nothing is told. One thread, the
// loop's.
class ServiceManager {
 public:
  // Finds it in the environment, which it is taken out of: to be made while the process has one
  // thread. The loop, which outlives it, tells that the server is alive, at a third of the interval
  // that is asked for. Throws std::system_error.
  explicit ServiceManager(EventLoop& loop);

  bool isThere() const { return _socket.isOpen(); }

  // Clients are served, or a reload is over, whatever came of it.
  void ready() { tellState("READY=1"); }
  // The configuration is about to be read again; ready() follows.
  void reloading() { tellState("RELOADING=1"); }
  void stopping() { tellState("STOPPING=1"); }

  // One line for people. Told when it is another one than before.
  void showStatus(const std::string& text);

  // For as long as the loop has to be kept from running.
  void alive() { send("WATCHDOG=1"); }

  // To be called every second or so.
  void flush();

 private:
  void tellState(const char* state);
  void watch();
  bool send(const std::string& message);

  Descriptor _socket;
  sockaddr_un _address{};
  socklen_t _addressLength = 0;
  const char* _untoldState = nullptr;
  std::string _status;
  bool _isStatusTold = true;
  const std::optional<std::chrono::microseconds> _watchdogInterval;
  Alarm _watchdog;
};

}  // namespace dch

#endif  // DCH_SERVICE_SERVICE_MANAGER_H
