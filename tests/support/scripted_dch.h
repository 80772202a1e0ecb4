// scripted_dch.h: a DCH on a loopback port that keeps the requests it gets and answers as told.
#ifndef TESTS_SUPPORT_SCRIPTED_DCH_H
#define TESTS_SUPPORT_SCRIPTED_DCH_H

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/messages.h"
#include "tests/support/sockets.h"

class ScriptedDch {
 public:
  // The datagrams to send back for a request; none leaves it without an answer.
  using Script = std::function<std::vector<std::string>(const std::string& request)>;

  // Serves on a port that the system gives, from a thread of its own, and points ZORA_DCH_ADDR and
  // ZORA_DCH_PORT of this process there.
  explicit ScriptedDch(Script script);
  ~ScriptedDch();
  ScriptedDch(const ScriptedDch&) = delete;
  ScriptedDch& operator=(const ScriptedDch&) = delete;

  int port() const { return _socket.port(); }

  // All requests so far.
  std::vector<std::string> requests() const;
  // Waits up to twenty seconds until `count` requests have come and the script is done with them,
  // and returns all so far.
  std::vector<std::string> waitForRequests(std::size_t count) const;

  // Sends a datagram to whoever sent the last request, or the one of that index in requests().
  void push(const std::string& datagram) const;
  void pushTo(std::size_t request, const std::string& datagram) const;

 private:
  void serve();

  Script _script;
  const DatagramSocket _socket;
  mutable std::mutex _mutex;
  mutable std::condition_variable _requestAnswered;
  std::vector<std::string> _requests;
  std::vector<sockaddr_in> _senders;
  std::size_t _answered = 0;
  std::thread _thread;
};

// A script that gives every request the same single answer, and one that never answers.
ScriptedDch::Script always(std::string answer);
ScriptedDch::Script never();

#endif  // TESTS_SUPPORT_SCRIPTED_DCH_H
