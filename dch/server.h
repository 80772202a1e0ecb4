// server.h: the server's worker: takes messages from the queue, one by one, and does what they ask.
#ifndef DCH_SERVER_H
#define DCH_SERVER_H

#include "dch/action_list.h"
#include "dch/actions.h"
#include "dch/answers.h"
#include "dch/deferrals.h"
#include "dch/event_log.h"
#include "dch/incoming_message.h"
#include "dch/paced_sender.h"
#include "dch/publisher.h"
#include "dch/push_socket.h"
#include "dch/registry.h"
#include "dch/requests.h"
#include "dch/subscriptions.h"
#include "zordipc/zordipc.h"

namespace dch {

// Does everything on the thread that calls run(), but for sending what has to be paced. What is
// passed in outlives it.
class Server {
 public:
  // Calls announceTime a moment after it was called.
  using Timer = void (*)();

  // Rows and events leave through `pushSocket`, long answers through `answerSocket`.
  Server(DCHipc& endpoint, Inbox& inbox, PushSocket& pushSocket, PushSocket& answerSocket,
         Registry& registry, const ActionList& actionList, Timer startTimer, const EventLog& log);

  // Serves until the endpoint is requested to stop.
  void run();

 private:
  void handleMessage(const IncomingMessage& message);
  void startTimerForSnapshots();
  void report() const;

  const EventLog& _log;
  Inbox& _inbox;
  Registry& _registry;
  PacedSender _pacedSender;
  Answers _answers;
  Subscriptions _subscriptions;
  Publisher _publisher;
  StatusSnapshots _snapshots;
  const Timer _startTimer;
  bool _timerRuns = false;
  Actions _actions;
  Deferrals _deferrals;
  Requests _requests;
};

}  // namespace dch

#endif  // DCH_SERVER_H
