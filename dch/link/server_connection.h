// server_connection.h: a connection to a NATS server, and the answers that come back on it.
#ifndef DCH_LINK_SERVER_CONNECTION_H
#define DCH_LINK_SERVER_CONNECTION_H

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "dch/link/link_error.h"
#include "dch/link/link_settings.h"
#include "dch/link/nats.h"

namespace dch {

// The server refuses what this user asks for or sends.
class NotPermitted : public LinkError {
 public:
  using LinkError::LinkError;
};

// One thread. The library has threads of its own below it, but calls nothing of ours.
class ServerConnection {
 public:
  static constexpr std::chrono::milliseconds longestConnecting{1'000};
  static constexpr std::chrono::milliseconds longestSending{500};

  // Throws LinkError.
  ServerConnection(const LinkSettings& settings, const std::string& server);
  ~ServerConnection();
  ServerConnection(const ServerConnection&) = delete;
  ServerConnection& operator=(const ServerConnection&) = delete;

  // Where an answer to what is sent has to go; it comes back from next() with that subject.
  std::string replySubject(std::string_view name) const { return _inbox + std::string(name); }
  // The name in a subject that replySubject() made.
  std::string_view nameIn(std::string_view subject) const { return subject.substr(_inbox.size()); }

  struct Header {
    const char* name;
    const char* value;
  };
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

  // For answers that are told from all others, also by who takes no question. Throws LinkError.
  struct Inbox {
    std::string subject;
    NatsSubscription answers;
  };
  Inbox inbox();
  // What comes there. Throws as next() does.
  Heard heard(natsSubscription* subscription, std::chrono::milliseconds atMost = {});

  // What is sent to the subject comes from received(); of several that share it each gets a part.
  // Throws LinkError.
  NatsSubscription share(const std::string& subject);
  // What comes; null when nothing does in time. Throws as next() does.
  NatsMessage received(natsSubscription* subscription, std::chrono::milliseconds atMost = {}) {
    return heard(subscription, atMost).message;
  }

  // For what is made of it.
  natsConnection* handle() const { return _connection.get(); }

  [[noreturn]] void fail(const std::string& what) const;
  // `status` is that of this thread's last call of the library.
  [[noreturn]] void fail(const std::string& what, natsStatus status) const;

 private:
  [[noreturn]] void failAsLost(natsStatus status) const;
  void failIfNotPermitted() const;

  const std::string _server;
  const NatsConnection _connection;
  std::string _inbox;  // ends with a dot
  NatsSubscription _answers;
};

}  // namespace dch

#endif  // DCH_LINK_SERVER_CONNECTION_H
