#include <nats/nats.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "bench/messaging_peers.h"
#include "bench/port_channel.h"

namespace {

constexpr char subject[] = "rows";
constexpr int answerMilliseconds = 10'000;

void require(natsStatus status) {
  if (status != NATS_OK) throw std::runtime_error(natsStatus_GetText(status));
}

natsConnection* openConnection(const std::string& url) {
  natsOptions* options = nullptr;
  natsConnection* connection = nullptr;
  require(natsOptions_Create(&options));
  require(natsOptions_SetURL(options, url.c_str()));
  require(natsOptions_SetSendAsap(options, true));
  require(natsConnection_Connect(&connection, options));
  natsOptions_Destroy(options);
  return connection;
}

// Starts nats-server and reads the port that it has got from its log.
void runServer(const std::function<void(int)>& tellPort) {
  int log[2];
  if (pipe(log) != 0) throw std::runtime_error("no pipe for the log of nats-server");
  const ChildProcess server([&] {
    dup2(log[1], STDERR_FILENO);
    execlp("nats-server", "nats-server", "--addr", "127.0.0.1", "--port", "-1", nullptr);
    throw std::runtime_error("nats-server cannot be started");
  });
  close(log[1]);
  std::FILE* const lines = fdopen(log[0], "r");
  static const char listening[] = "client connections on 127.0.0.1:";
  std::array<char, 1024> line;
  bool told = false;
  while (std::fgets(line.data(), line.size(), lines) != nullptr) {
    const char* const found = std::strstr(line.data(), listening);
    if (found == nullptr || told) continue;
    tellPort(std::atoi(found + std::strlen(listening)));
    told = true;
  }
}

[[noreturn]] void answer(const std::string& url, const std::function<void(int)>& tellReady) {
  natsConnection* const connection = openConnection(url);
  natsSubscription* subscription = nullptr;
  require(natsConnection_SubscribeSync(&subscription, connection, subject));
  require(natsConnection_Flush(connection));
  constexpr int ready = 1;
  tellReady(ready);
  constexpr char answerBytes[answerSize] = {};
  for (;;) {
    natsMsg* request = nullptr;
    require(natsSubscription_NextMsg(&request, subscription, 1'000'000'000));
    require(natsConnection_Publish(connection, natsMsg_GetReply(request), answerBytes, answerSize));
    natsMsg_Destroy(request);
  }
}

}  // namespace

NatsPeer::NatsPeer() {
  _url = "nats://127.0.0.1:" + std::to_string(startOnPort(&_server, runServer));
  startOnPort(&_process, [this](const auto& tellReady) { answer(_url, tellReady); });
}

Exchange NatsPeer::connect() const {
  natsConnection* const connection = openConnection(_url);
  return {[] { delete[] buildRow(); },
          [connection] {
            constexpr char request[requestSize] = {};
            natsMsg* answer = nullptr;
            require(natsConnection_Request(&answer, connection, subject, request, requestSize,
                                           answerMilliseconds));
            const bool good = natsMsg_GetDataLength(answer) == answerSize;
            natsMsg_Destroy(answer);
            return good;
          }};
}
