// requests.h: what each request does, and what is answered.
#ifndef DCH_REQUESTS_H
#define DCH_REQUESTS_H

#include <string>
#include <string_view>
#include <vector>

#include "dch/actions.h"
#include "dch/deferrals.h"
#include "dch/event_log.h"
#include "dch/field_reader.h"
#include "dch/incoming_message.h"
#include "dch/publisher.h"
#include "dch/registry.h"
#include "dch/status_events.h"
#include "dch/status_snapshots.h"
#include "zordchcl/status.h"

namespace dch {

struct Answer {
  enum class Form { none, status, statusAndHandle, text };
  Form form = Form::none;
  ZORA_Long status = DCH_STATUS_OK;  // a DCH_Status, or the result of an action
  ZORA_Long handle = 0;
  std::string text = {};
};

struct Outcome {
  Answer answer;
  // The source of a row that was accepted and is to be published once it is acknowledged, else
  // null. Valid until the next request.
  const OnlineSource* source = nullptr;
  // To be published once the request is answered.
  std::vector<StatusEvent> statusEvents;
};

// Reads requests, applies them and says what to answer. It sends no answers itself. One thread.
class Requests {
 public:
  Requests(Registry& registry, Publisher& publisher, StatusSnapshots& snapshots, Actions& actions,
           Deferrals& deferrals, const EventLog& log)
      : _registry(registry),
        _publisher(publisher),
        _snapshots(snapshots),
        _actions(actions),
        _deferrals(deferrals),
        _log(log) {}

  // Handles a message of a client, whatever is in it; the message is left as it was received.
  Outcome handle(const IncomingMessage& message);

 private:
  struct Request {
    const IncomingMessage& message;
    FieldReader fields;
    short code;
  };

  Outcome dispatch(Request* request);
  Outcome registration(Request* request);
  Outcome online(Request* request);
  Outcome offline(Request* request);
  Outcome unregister(Request* request);
  Outcome data(Request* request);
  Outcome catalogue(Request* request);
  Outcome subscription(Request* request);
  Outcome statusSubscription(Request* request);
  Outcome action(Request* request);
  Outcome actionResults(Request* request);
  Outcome deferral(Request* request);

  DCH_Status checkAttributes(FieldReader* fields, const AttributeGroup& group);
  void subscribe(std::string_view application, std::string_view group, const PeerAddress& address);
  void withdraw(std::string_view application, std::string_view group, const PeerAddress& address);

  void subscribeToStatus(const PeerAddress& address);

  // Events are made before the change that they tell of, so that running out of memory changes
  // nothing; there are none while nobody subscribes to them.
  std::vector<StatusEvent> eventsOf(std::string_view application, short code) const;
  void addEvent(std::vector<StatusEvent>* events, const SourceNames& names, short code) const;

  Outcome refused(const Request& request, DCH_Status status, std::string_view reason = {});

  Registry& _registry;
  Publisher& _publisher;
  StatusSnapshots& _snapshots;
  Actions& _actions;
  Deferrals& _deferrals;
  const EventLog& _log;
};

}  // namespace dch

#endif  // DCH_REQUESTS_H
