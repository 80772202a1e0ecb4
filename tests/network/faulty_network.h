// faulty_network.h: a network between clients and a DCH that loses, repeats, delays and reorders
// datagrams, and brings answers from another port or to the wrong client.
#ifndef TESTS_NETWORK_FAULTY_NETWORK_H
#define TESTS_NETWORK_FAULTY_NETWORK_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/sockets.h"

namespace network {

enum class Direction { toDch, toClient };

// A datagram on its way.
struct Passing {
  Direction direction;
  std::size_t client;  // whose it is; clients count from 0 in the order in which they first send
  std::size_t number;  // how many went in this direction before it
  std::string bytes;
};

// One copy of a datagram that arrives. A datagram without one is lost.
struct Arrival {
  std::chrono::milliseconds delay{0};
  bool isHeld = false;                  // comes with FaultyNetwork::release()
  bool isFromAnotherPort = false;       // on its way to a client
  std::optional<std::size_t> client{};  // another client than the one that it is for
};
using Arrivals = std::vector<Arrival>;

// What becomes of a datagram. Called for one at a time.
using Faults = std::function<Arrivals(const Passing&)>;

// Each of these is about one datagram, or all, of a direction; whatever else goes by arrives.
Faults noFaults();
Faults faultOf(Direction direction, std::size_t number, Arrivals arrivals);
Faults faultOfAll(Direction direction, Arrivals arrivals);

inline const Arrivals lost{};
inline const Arrivals once{Arrival{}};
inline const Arrivals twice{Arrival{}, Arrival{}};
inline const Arrivals late{Arrival{.isHeld = true}};
inline const Arrivals fromAnotherPort{Arrival{.isFromAnotherPort = true}};

// Chances, from 0 to 1, of what may happen to a datagram of either direction. One seed always gives
// the same faults for the same datagrams in the same order.
struct Chances {
  double loss = 0;
  double repetition = 0;
  double delay = 0;  // by up to longestDelay, so that later datagrams overtake it
  std::chrono::milliseconds longestDelay{0};
};
Faults randomFaults(unsigned seed, const Chances& chances);

// Runs on a thread of its own. Every client gets a socket of its own towards the DCH, so that the
// DCH tells clients apart and may answer from any port.
class FaultyNetwork {
 public:
  // `dchPort` is a port of this machine.
  FaultyNetwork(int dchPort, Faults faults);
  ~FaultyNetwork();
  FaultyNetwork(const FaultyNetwork&) = delete;
  FaultyNetwork& operator=(const FaultyNetwork&) = delete;

  // The DCH's port, as the clients see it.
  int port() const { return _towardsClients.port(); }

  // Replaces the faults; datagrams that are on their way stay as they are.
  void setFaults(Faults faults);

  // From now on the DCH is on that port of this machine.
  void leadTo(int dchPort);

  // Waits up to twenty seconds until so many datagrams have come, whatever becomes of them.
  bool waitFor(Direction direction, std::size_t count) const;

  // Lets what is held arrive, in the order in which it came; it has arrived when this returns.
  // Waits up to twenty seconds for something to hold.
  void release();

 private:
  using Clock = std::chrono::steady_clock;

  struct Client {
    sockaddr_in address;
    DatagramSocket towardsDch;
  };
  struct OnItsWay {
    Direction direction;
    std::size_t client;
    bool isFromAnotherPort;
    std::string bytes;
  };

  void run();
  int millisecondsToNext() const;
  void deliverWhatIsDue();
  std::size_t clientAt(const sockaddr_in& address);
  void carry(Direction direction, std::size_t client, const std::string& bytes);
  void deliver(const OnItsWay& datagram) const;

  const DatagramSocket _towardsClients;
  const DatagramSocket _otherPort;
  int _wakeUp;

  mutable std::mutex _mutex;  // guards what follows
  mutable std::condition_variable _came;
  sockaddr_in _dch;
  Faults _faults;
  std::vector<Client> _clients;
  std::multimap<Clock::time_point, OnItsWay> _delayed;
  std::vector<OnItsWay> _held;
  std::map<Direction, std::size_t> _counts;
  bool _isEnding = false;

  std::thread _thread;
};

}  // namespace network

#endif  // TESTS_NETWORK_FAULTY_NETWORK_H
