// server_connection.h: a connection to a NATS server, and the answers that come back on it.
#ifndef DCH_LINK_SERVER_CONNECTION_H
#define DCH_LINK_SERVER_CONNECTION_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "dch/link/link_settings.h"
#include "dch/link/nats.h"
#include "dch/link/nats_connecting.h"
#include "dch/link/waitable_flag.h"

namespace dch {

// One thread. The library has threads of its own below it. The one that reads looks a subscription
// up, makes the message, and only then locks the subscription, which another thread may have freed
// meanwhile: then the process dies, or that thread waits for ever. So here a subscription that ends
// is freed only when that thread has gone on, or is gone. The library itself does not wait for that
// when it asks JetStream something, or reads a stream: what is asked goes through ask().
class ServerConnection {
 public:
  // JetStream, about one thing.
  static constexpr std::chrono::milliseconds longestAsking{1'000};

  // Throws LinkError.
  ServerConnection(const LinkSettings& settings, const std::string& server);
  ~ServerConnection();  // what was subscribed to has ended
  ServerConnection(const ServerConnection&) = delete;
  ServerConnection& operator=(const ServerConnection&) = delete;

  // Where an answer to what is sent has to go; it comes back from next() with that subject.
  std::string replySubject(std::string_view name) const { return _inbox + std::string(name); }
  // The name in a subject that replySubject() made.
  std::string_view nameIn(std::string_view subject) const { return subject.substr(_inbox.size()); }

  std::string newInbox() const { return dch::newInbox(_site); }

  using Header = NatsHeader;
  // `replySubject` may be empty. NATS_OK, or NATS_MAX_PAYLOAD for what the server would not take.
  // Throws LinkError when the connection is lost.
  natsStatus send(const std::string& subject, const std::string& replySubject,
                  const std::vector<Header>& headers, std::string_view body);

  struct Heard {
    NatsMessage message{};       // null: no answer came in time
    bool nobodyTakesIt = false;  // something that was sent; the library keeps to itself what
  };
  // Throws LinkError when the connection is lost, and NotPermitted.
  Heard next(std::chrono::milliseconds atMost) { return heard(_answers.get(), atMost); }

  // The answer to what is sent with this. Throws as next() does.
  Heard ask(const std::string& subject, std::string_view body, std::chrono::milliseconds atMost);

  struct SubscriptionEnd {
    ServerConnection* connection;
    void operator()(natsSubscription* subscription) const noexcept {
      connection->end(subscription);
    }
  };
  using Subscription = std::unique_ptr<natsSubscription, SubscriptionEnd>;
  // What is sent to the subject comes from received(). Throws LinkError.
  Subscription subscribe(const std::string& subject);
  // Of several that share it each gets a part.
  Subscription share(const std::string& subject);
  // What comes. Throws as next() does.
  Heard heard(natsSubscription* subscription, std::chrono::milliseconds atMost = {});
  // What comes; null when nothing does in time. Throws as next() does.
  NatsMessage received(natsSubscription* subscription, std::chrono::milliseconds atMost = {}) {
    return heard(subscription, atMost).message;
  }

  [[noreturn]] void fail(const std::string& what) const;

 private:
  void end(natsSubscription* subscription) noexcept;

  const std::string _server;
  const std::string _site;
  const std::shared_ptr<WaitableFlag> _isClosed;
  const NatsConnection _connection;
  std::string _inbox;  // ends with a dot
  NatsSubscription _answers;
  std::string _askedInbox;  // ends with a dot
  NatsSubscription _asked;
  std::uint64_t _questions = 0;
  std::vector<NatsSubscription> _ended;  // the library may still be at a message for them
};

}  // namespace dch

#endif  // DCH_LINK_SERVER_CONNECTION_H
