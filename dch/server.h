// server.h: the server's worker: takes messages from the queue, one by one, and hands them to the
// core.
#ifndef DCH_SERVER_H
#define DCH_SERVER_H

#include "dch/child_programs.h"
#include "dch/core/core.h"
#include "dch/endpoint_answers.h"
#include "dch/event_log.h"
#include "dch/incoming_message.h"
#include "dch/paced_sender.h"
#include "dch/push_socket.h"
#include "zordipc/zordipc.h"

namespace dch {

// Does everything on the thread that calls run(), but for sending what has to be paced. What is
// passed in outlives it.
class Server {
 public:
  // Rows and events leave through `pushSocket`, long answers through `answerSocket`. `timer` calls
  // announceTime.
  Server(DCHipc& endpoint, Inbox& inbox, PushSocket& pushSocket, PushSocket& answerSocket,
         Store& store, Timer& timer, const ActionList& actionList, const EventLog& log);

  // Serves until the endpoint is requested to stop.
  void run();

 private:
  void report() const;

  const EventLog& _log;
  Inbox& _inbox;
  Counters _counters;
  PacedSender _pacedSender;
  EndpointAnswers _answers;
  ChildPrograms _programs;
  Core _core;
};

}  // namespace dch

#endif  // DCH_SERVER_H
