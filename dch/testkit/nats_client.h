// nats_client.h: connections of tests to a NATS server.
#ifndef DCH_TESTKIT_NATS_CLIENT_H
#define DCH_TESTKIT_NATS_CLIENT_H

#include <chrono>
#include <string>

#include "dch/link/nats.h"
#include "dch/testkit/nats_messages.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {

// Who subscribes closes it before that is freed: the library may still be at a message for it.
class NatsClient {
 public:
  // Whether it has threads of its own for what it sends and its subscriptions, or, as one of very
  // many, but for reading.
  enum class Threads { own, shared };

  // Waits while the machine stands still, or the server starts. With TLS where there is a file of
  // an authority. Throws std::runtime_error.
  explicit NatsClient(const std::string& url, const std::string& authority = {},
                      Threads threads = Threads::own) {
    constexpr std::chrono::seconds patience{60};
    natsOptions* made = nullptr;
    requireDone(natsOptions_Create(&made));
    const NatsOptions options(made);
    requireDone(natsOptions_SetURL(made, url.c_str()));
    requireDone(natsOptions_UseGlobalMessageDelivery(made, threads == Threads::shared));
    requireDone(natsOptions_SetSendAsap(made, threads == Threads::shared));
    if (!authority.empty()) {
      requireDone(natsOptions_SetSecure(made, true));
      requireDone(natsOptions_LoadCATrustedCertificates(made, authority.c_str()));
    }
    // The library's two seconds may pass in the midst of the server's answer, which is a fault
    // then.
    requireDone(natsOptions_SetTimeout(made, std::chrono::milliseconds(patience).count()));
    natsStatus status = NATS_OK;
    natsConnection* connection = nullptr;
    waitUntil([&] { return (status = natsConnection_Connect(&connection, made)) == NATS_OK; },
              patience);
    requireDone(status);
    _connection.reset(connection);
  }

  natsConnection* get() const { return _connection.get(); }
  void close() const { natsConnection_Close(get()); }

 private:
  NatsConnection _connection;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_NATS_CLIENT_H
