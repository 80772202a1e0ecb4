// live_connection.h: a connection to a NATS server on which what comes is put by at once.
#ifndef DCH_LINK_LIVE_CONNECTION_H
#define DCH_LINK_LIVE_CONNECTION_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "dch/link/link_settings.h"
#include "dch/link/nats.h"
#include "dch/link/nats_connecting.h"
#include "dch/link/waitable_flag.h"

namespace dch {

// What has come; it is gone when the call that gets it is over.
class LiveMessage {
 public:
  explicit LiveMessage(natsMsg* message) : _message(message) {}

  std::string_view subject() const { return natsMsg_GetSubject(_message); }
  // Empty: it wants no answer.
  std::string_view replySubject() const;
  std::string_view body() const;
  // Empty: there is none.
  std::string_view header(const char* name) const;
  // It says that nobody has subscribed to what was sent; its subject is the reply subject of that.
  bool saysNobody() const { return natsMsg_IsNoResponders(_message); }

 private:
  natsMsg* const _message;
};

// Where messages are put until somebody takes them.
class LiveInbox {
 public:
  LiveInbox() = default;
  virtual ~LiveInbox() = default;
  LiveInbox(const LiveInbox&) = delete;
  LiveInbox& operator=(const LiveInbox&) = delete;

  // A thread of the library, which is there for all that come: it takes no time, and calls nothing
  // of a connection. The owner of the subscription may be gone, and its connection closed.
  virtual void put(const LiveMessage& message) noexcept = 0;
};

// It has no JetStream, and hears nothing of what it sends itself. One thread; the library has
// threads of its own below it, so what is said of ServerConnection holds here, too: what was
// subscribed to is freed only when the library has gone on.
class LiveConnection {
 public:
  // Throws LinkError.
  LiveConnection(const LinkSettings& settings, const std::string& server);
  ~LiveConnection();  // what was subscribed to has ended
  LiveConnection(const LiveConnection&) = delete;
  LiveConnection& operator=(const LiveConnection&) = delete;

  // Sends it at once. `replySubject` may be empty. False: the server would not take it, as it is
  // too large. Throws LinkError when the connection is lost.
  bool send(const std::string& subject, const std::string& replySubject,
            const std::vector<NatsHeader>& headers, std::string_view body);

  struct SubscriptionEnd {
    LiveConnection* connection;
    void operator()(natsSubscription* subscription) const noexcept {
      connection->end(subscription);
    }
  };
  // To be gone before the connection is.
  using Subscription = std::unique_ptr<natsSubscription, SubscriptionEnd>;
  // How much may wait to be put by: some rows, or answers of several sites at once.
  enum class Room { little, much };
  // What is sent to the subject is put there, in its order; what comes faster than it can be put by
  // is lost. Messages may still be put there when the subscription is gone. Throws LinkError.
  Subscription subscribe(const std::string& subject, std::shared_ptr<LiveInbox> inbox,
                         Room room = Room::little);

  // Where answers may go, with a dot and words behind it; another place each time.
  std::string newInbox() const { return dch::newInbox(_site); }

  // Throws LinkError when the connection is lost, and NotPermitted.
  void check() const;
  // Waits until the server has answered to all that was sent, and asked for, before. Throws as
  // check() does.
  void settle() const;

 private:
  void end(natsSubscription* subscription) noexcept;
  void freeEnded() noexcept;

  const std::string _server;
  const std::string _site;
  const std::shared_ptr<WaitableFlag> _isClosed;
  const NatsConnection _connection;
  std::vector<NatsSubscription> _ended;  // the library may still be at a message for them
};

}  // namespace dch

#endif  // DCH_LINK_LIVE_CONNECTION_H
