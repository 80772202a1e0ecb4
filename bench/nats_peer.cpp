#include "bench/messaging_peers.h"
#include "bench/nats_connection.h"
#include "bench/port_channel.h"

namespace {

constexpr char subject[] = "rows";
constexpr int answerMilliseconds = 10'000;

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
  startOnPort(&_process, [this](const auto& tellReady) { answer(_server.url(), tellReady); });
}

Exchange NatsPeer::connect() const {
  natsConnection* const connection = openConnection(_server.url());
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
