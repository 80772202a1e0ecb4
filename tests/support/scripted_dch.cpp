#include "tests/support/scripted_dch.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <stdexcept>

std::string messageOf(const std::function<void(DCH_MessageBuilder&)>& addFields) {
  std::string buffer(65536, '\0');
  DCH_MessageBuilder message(buffer.data(), buffer.size());
  addFields(message);
  buffer.resize(static_cast<std::size_t>(message.length()));
  return buffer;
}

std::string statusAnswer(ZORA_Long status) {
  return messageOf([&](DCH_MessageBuilder& message) { message.add(DCH_status, status); });
}

std::string onlineAnswer(ZORA_Long status, ZORA_Long handle) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_status, status).add(DCH_handle, handle);
  });
}

ScriptedDch::Script always(std::string answer) {
  return [answer](const std::string&) { return std::vector<std::string>{answer}; };
}

ScriptedDch::Script never() {
  return [](const std::string&) { return std::vector<std::string>{}; };
}

ScriptedDch::ScriptedDch(Script script)
    : _script(std::move(script)), _socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (_socket < 0 || bind(_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      getsockname(_socket, reinterpret_cast<sockaddr*>(&address), &length) != 0)
    throw std::runtime_error("no socket for the scripted DCH");
  _port = ntohs(address.sin_port);
  setenv("ZORA_DCH_ADDR", "127.0.0.1", 1);
  setenv("ZORA_DCH_PORT", std::to_string(_port).c_str(), 1);
  _thread = std::thread([this] { serve(); });
}

ScriptedDch::~ScriptedDch() {
  // Wakes the receiving thread: a datagram socket that is shut down for reading gives 0 bytes.
  shutdown(_socket, SHUT_RD);
  _thread.join();
  close(_socket);
}

void ScriptedDch::serve() {
  std::array<char, 65536> buffer;
  for (;;) {
    sockaddr_in sender{};
    socklen_t length = sizeof sender;
    const ssize_t count = recvfrom(_socket, buffer.data(), buffer.size(), 0,
                                   reinterpret_cast<sockaddr*>(&sender), &length);
    if (count <= 0) return;
    const std::string request(buffer.data(), static_cast<std::size_t>(count));
    {
      const std::lock_guard lock(_mutex);
      _requests.push_back(request);
      _senders.push_back(sender);
    }
    for (const std::string& answer : _script(request))
      sendto(_socket, answer.data(), answer.size(), 0, reinterpret_cast<sockaddr*>(&sender),
             sizeof sender);
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
  sendto(_socket, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&receiver),
         sizeof receiver);
}
