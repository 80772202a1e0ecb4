// tcp_gate.h: a port in front of a server, on which a test cuts off those who connect.
#ifndef DCH_TESTKIT_TCP_GATE_H
#define DCH_TESTKIT_TCP_GATE_H

#include <poll.h>

#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dch/net/descriptor.h"
#include "tests/support/sockets.h"

namespace dch::testkit {

// On a free port of the loopback interface, which stays when the server gets another one. It passes
// on what comes, on a thread of its own, until it is told otherwise. Each call has been obeyed when
// it returns.
class TcpGate {
 public:
  explicit TcpGate(int serverPort);
  ~TcpGate();
  TcpGate(const TcpGate&) = delete;
  TcpGate& operator=(const TcpGate&) = delete;

  int port() const { return _listener.port(); }
  std::string natsUrl() const { return "nats://127.0.0.1:" + std::to_string(port()); }

  // Where connections that are made from now on lead to.
  void leadTo(int serverPort);

  // Drops all connections, and new ones at once.
  void cut();
  // Keeps the connections, and takes new ones, but passes nothing on.
  void hold();
  // As hold(), but what the clients send is passed on.
  void holdAnswers();
  void pass();

 private:
  enum class State { passing, holding, holdingAnswers, cut };

  // What one side has sent and the other has not got yet.
  struct Direction {
    // Moves what can be moved now. Returns false when a side has gone.
    bool move();

    const int from;
    const int to;
    std::string bytes{};
  };
  struct Connection {
    Descriptor client;
    Descriptor server;
    Direction up{client.get(), server.get()};
    Direction down{server.get(), client.get()};
  };

  void set(State state);
  void ring() const;
  void run();
  void waitForMore();
  static void watch(const Direction& direction, std::vector<pollfd>* watched);
  void acceptNext();

  const StreamListener _listener;
  const Descriptor _bell;  // an eventfd, for who changes what follows
  std::mutex _mutex;
  State _state = State::passing;
  int _serverPort;
  bool _isEnding = false;
  std::list<Connection> _connections;
  std::thread _thread;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_TCP_GATE_H
