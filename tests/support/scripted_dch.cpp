#include "tests/support/scripted_dch.h"

#include <sys/socket.h>

#include <chrono>
#include <cstdlib>
#include <utility>

ScriptedDch::Script always(std::string answer) {
  return [answer](const std::string&) { return std::vector<std::string>{answer}; };
}

ScriptedDch::Script never() {
  return [](const std::string&) { return std::vector<std::string>{}; };
}

ScriptedDch::ScriptedDch(Script script) : _script(std::move(script)) {
  setenv("ZORA_DCH_ADDR", "127.0.0.1", 1);
  setenv("ZORA_DCH_PORT", std::to_string(port()).c_str(), 1);
  _thread = std::thread([this] { serve(); });
}

ScriptedDch::~ScriptedDch() {
  // Wakes the receiving thread: a datagram socket that is shut down for reading gives 0 bytes.
  shutdown(_socket.descriptor(), SHUT_RD);
  _thread.join();
}

void ScriptedDch::serve() {
  constexpr int noLimit = -1;
  for (;;) {
    sockaddr_in sender{};
    const std::string request = _socket.tryReceive(noLimit, &sender).value_or("");
    if (request.empty()) return;
    {
      const std::lock_guard lock(_mutex);
      _requests.push_back(request);
      _senders.push_back(sender);
    }
    for (const std::string& answer : _script(request)) _socket.sendTo(sender, answer);
    const std::lock_guard lock(_mutex);
    ++_answered;
    _requestAnswered.notify_all();
  }
}

std::vector<std::string> ScriptedDch::requests() const {
  const std::lock_guard lock(_mutex);
  return _requests;
}

std::vector<std::string> ScriptedDch::waitForRequests(std::size_t count) const {
  std::unique_lock lock(_mutex);
  _requestAnswered.wait_for(lock, std::chrono::seconds(20), [&] { return _answered >= count; });
  return _requests;
}

void ScriptedDch::push(const std::string& datagram) const {
  pushTo(requests().size() - 1, datagram);
}

void ScriptedDch::pushTo(std::size_t request, const std::string& datagram) const {
  sockaddr_in receiver;
  {
    const std::lock_guard lock(_mutex);
    receiver = _senders.at(request);
  }
  _socket.sendTo(receiver, datagram);
}
