// The server's receive loop, with clients that send a datagram, a message on a connection, and
// close it.
#include <arpa/inet.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/faults/scenario.h"
#include "tests/support/running_server.h"
#include "tests/support/sockets.h"

namespace {

using Clock = std::chrono::steady_clock;

// Whether `text` comes into the queue within a moment.
bool comes(RunningServer& server, const std::string& text) {
  const auto end = Clock::now() + std::chrono::milliseconds(50);
  while (Clock::now() < end && !server.hasEnded()) {
    if (server.endpoint()._ipcCircularBuffer->num_full == 0)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    else if (server.next().bytes == text)
      return true;
  }
  return false;
}

// A client that hears nothing tries again.
bool isServed(RunningServer& server, const std::string& text, const std::function<void()>& send) {
  constexpr int mostTries = 100;
  for (int i = 0; i < mostTries && !server.hasEnded(); ++i) {
    send();
    if (comes(server, text)) return true;
  }
  return false;
}

bool servesDatagrams(RunningServer& server) {
  const DatagramSocket client;
  return isServed(server, "datagram", [&] { client.sendTo(server.datagramPort(), "datagram"); });
}

bool servesConnections(RunningServer& server) {
  // Of several pieces.
  std::string message(10'000, 'x');
  const std::uint32_t length = htonl(static_cast<std::uint32_t>(message.size()));
  std::memcpy(message.data(), &length, sizeof length);
  std::optional<StreamSocket> client;
  try {
    if (!isServed(server, message, [&] { client.emplace(server.streamPort()).send(message); }))
      return false;
  } catch (const std::runtime_error&) {
    return false;  // nobody listens
  }
  client.reset();
  comes(server, "DP-DISCONNECT");
  return true;
}

std::string serve() {
  RunningServer server;
  server.launch([&] { return tested([&] { return server.endpoint().IPCServer(); }); });
  while (callsMade(SystemCall::select) == 0 && !server.hasEnded()) std::this_thread::yield();
  if (!servesDatagrams(server)) return "nothing served";
  return servesConnections(server) ? "served" : "datagrams served";
}

}  // namespace

std::vector<Scenario> serverScenarios() {
  Scenario loop{"IPCServer", serve, "served"};
  const std::string loopEnds = "Error: select failed. <";
  loop.failures = {{"datagrams served", {"Error: listen for _sockTCP failed. errno=", loopEnds}},
                   {"nothing served", {loopEnds}}};
  loop.lastWords = "Exiting...";
  return {loop};
}
