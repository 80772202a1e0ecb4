// requests.h: what each request does, and what is answered.
#ifndef DCH_REQUESTS_H
#define DCH_REQUESTS_H

#include <string_view>

#include "dch/event_log.h"
#include "dch/field_reader.h"
#include "dch/incoming_message.h"
#include "dch/publisher.h"
#include "dch/registry.h"
#include "zordchcl/status.h"

namespace dch {

struct Answer {
  enum class Form { none, status, statusAndHandle };
  Form form = Form::none;
  DCH_Status status = DCH_STATUS_OK;
  ZORA_Long handle = 0;
};

struct Outcome {
  Answer answer;
  // The source of a row that was accepted and is to be published once it is acknowledged, else
  // null. Valid until the next request.
  const OnlineSource* source = nullptr;
};

// Reads requests, applies them and says what to answer. It sends no answers itself. One thread.
class Requests {
 public:
  Requests(Registry& registry, Publisher& publisher, const EventLog& log)
      : _registry(registry), _publisher(publisher), _log(log) {}

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
  Outcome subscription(Request* request);

  DCH_Status goOnline(Request* request, ZORA_Long* handle);
  DCH_Status checkAttributes(FieldReader* fields, const AttributeGroup& group);
  void subscribe(std::string_view application, std::string_view group, const PeerAddress& address);
  void withdraw(std::string_view application, std::string_view group, const PeerAddress& address);

  Outcome refused(const Request& request, DCH_Status status, std::string_view reason = {});

  Registry& _registry;
  Publisher& _publisher;
  const EventLog& _log;
};

}  // namespace dch

#endif  // DCH_REQUESTS_H
