// server.h: the server's worker: takes messages from the queue, one by one, and does what they ask.
#ifndef DCH_SERVER_H
#define DCH_SERVER_H

#include "dch/answers.h"
#include "dch/event_log.h"
#include "dch/incoming_message.h"
#include "dch/publisher.h"
#include "dch/push_socket.h"
#include "dch/registry.h"
#include "dch/requests.h"
#include "dch/subscriptions.h"
#include "zordipc/zordipc.h"

namespace dch {

// Does everything on the thread that calls run(). What is passed in outlives it.
class Server {
 public:
  Server(DCHipc& endpoint, PushSocket& pushSocket, Registry& registry, const EventLog& log);

  // Says on standard output when the server is ready, then serves until stop() is called.
  void run();

  // Ends run() once the messages that wait are handled. Any thread, once.
  void stop() { _inbox.requestStop(); }

 private:
  void handleMessage(const IncomingMessage& message);
  void announce(const PeerAddress& ownAddress);

  const EventLog& _log;
  Inbox _inbox;
  Answers _answers;
  Subscriptions _subscriptions;
  Publisher _publisher;
  Requests _requests;
};

}  // namespace dch

#endif  // DCH_SERVER_H
