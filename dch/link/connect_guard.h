// connect_guard.h: ends a connecting that the library for NATS would never end by itself.
#ifndef DCH_LINK_CONNECT_GUARD_H
#define DCH_LINK_CONNECT_GUARD_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <thread>

namespace dch {

// A server that falls silent after its greeting, as one that is stopped just then or whose network
// goes, keeps the library waiting for ever; it even takes a whole processor for it. The library has
// no limit for that and shows its socket to nobody. So this looks for the sockets that the process
// has got since, and that lead to the server's port, and shuts down those that are there for too
// long. It does so on a thread of its own, until its object goes.
class ConnectGuard {
 public:
  ConnectGuard(int port, std::chrono::milliseconds longest);
  ~ConnectGuard();
  ConnectGuard(const ConnectGuard&) = delete;
  ConnectGuard& operator=(const ConnectGuard&) = delete;

  bool hasShutDown() const;

 private:
  using TimePoint = std::chrono::steady_clock::time_point;
  using Cookie = std::uint64_t;  // the system's name for a socket, which it never gives again

  void run();
  void look(TimePoint now);

  const int _port;
  const std::chrono::milliseconds _longest;
  const std::set<Cookie> _earlier;
  mutable std::mutex _mutex;
  std::condition_variable _end;
  bool _isEnding = false;
  bool _hasShutDown = false;
  std::map<Cookie, TimePoint> _firstSeen;
  std::thread _thread;
};

}  // namespace dch

#endif  // DCH_LINK_CONNECT_GUARD_H
