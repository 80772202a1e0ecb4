#include <nats/nats.h>

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

// The port that nats-server has got, from its log.
std::string portOf(Process* server) {
  static const std::string listening = "client connections on 127.0.0.1:";
  const std::string log = server->waitForError("Server is ready");
  const std::size_t port = log.find(listening) + listening.size();
  return log.substr(port, log.find('\n', port) - port);
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
  _server.emplace("nats-server", Process::Arguments{"--addr", "127.0.0.1", "--port", "-1"});
  _url = "nats://127.0.0.1:" + portOf(&*_server);
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
