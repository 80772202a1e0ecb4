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
// long. It does so on a thread of its own.
//
// Whose thread a socket is of nobody can tell. So those that connect to a port take turns, in the
// order in which they come, and what a guard finds new is of its own thread's connecting. The nodes
// of a cluster have one port, so that a node that stands still keeps the other threads waiting for
// as long.
class ConnectGuard {
 public:
  // Waits until no other guard has the port, so a thread has one at a time. Throws
  // std::system_error when it cannot see which sockets there are.
  ConnectGuard(int port, std::chrono::milliseconds longest);
  ~ConnectGuard() { end(); }
  ConnectGuard(const ConnectGuard&) = delete;
  ConnectGuard& operator=(const ConnectGuard&) = delete;

  // From now on nothing is shut down. The port stays its own.
  void end();

  bool hasShutDown() const;

 private:
  class Turn {
   public:
    explicit Turn(int port);
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

   private:
    const int _port;
  };

  using TimePoint = std::chrono::steady_clock::time_point;
  using Cookie = std::uint64_t;  // the system's name for a socket, which it never gives again

  void run();
  void look(TimePoint now);

  const Turn _turn;
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
