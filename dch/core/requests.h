// requests.h: what clients ask for. A request is read and checked here; what comes of it is the
// core's.
#ifndef DCH_CORE_REQUESTS_H
#define DCH_CORE_REQUESTS_H

#include <span>
#include <string>
#include <variant>

#include "dch/core/actions.h"
#include "dch/core/catalogue.h"
#include "dch/core/change.h"
#include "dch/core/changes_under_way.h"
#include "dch/core/field_reader.h"
#include "dch/core/message.h"
#include "dch/core/postponed_requests.h"
#include "dch/core/publisher.h"
#include "dch/core/registry.h"
#include "dch/core/status_snapshots.h"
#include "zordchcl/status.h"

namespace dch {

struct RequestType;

struct Request {
  const Message& message;
  FieldReader fields;  // behind the code
};

// What requests are checked against. Subscriptions and questions, which nobody keeps, are dealt
// with at once.
struct RequestContext {
  // Whether a request has to wait: for a change that is under way, or behind others that wait.
  bool holdUp(std::string_view application, ZORA_Long handle = 0) const {
    return postponed.has(application) || underWay.holdUp(application, handle);
  }

  AllProviders allProviders() const { return {registry, remoteProviders}; }

  const Registry& registry;
  const RemoteProviders& remoteProviders;
  Catalogue& catalogue;
  const ChangesUnderWay& underWay;
  const PostponedRequests& postponed;
  Publisher& publisher;
  StatusSnapshots& snapshots;
  Actions& actions;
  const Log& log;
  Counters& counters;
};

// What is to be done about a request.
struct NoAnswer {};
struct Refusal {
  DCH_Status status;
  std::string reason = {};  // for the log
};
struct Result {
  DCH_Status status;
  ZORA_Long handle = 0;
};
struct ActionResult {
  ZORA_Long result;
};
struct Text {
  std::string text;
};
struct Waits {};  // for its answer, which is to be sent when an action ends
struct Postponed {
  std::string_view application;  // for whose changes it waits; in the message or the registry
};
using Reply = std::variant<NoAnswer, Refusal, Result, ActionResult, Text, Waits, Postponed, Change>;

// Reads and checks a request, and does what nobody keeps. Throws std::bad_alloc; then it is refused
// and nothing has been done, but that a subscriber of status may be one without having been told
// what is on line: it asks again when it hears nothing.
using RequestHandler = Reply (*)(const RequestContext& context, Request* request);

struct RequestType {
  short code;
  const char* name;           // for the log and the counters
  bool isAnsweredByDatagram;  // else the sender would take an answer for something it waits for
  bool hasHandle;             // in its answer
  RequestHandler handle;
};

// No more than there is room for in what is counted of each.
constexpr std::size_t mostRequestTypes = 16;

// All of them; the last one, without a code, stands for what is none of the others.
std::span<const RequestType> requestTypes();
const RequestType& requestTypeOf(short code);

// Each reads the fields of one request.
Reply registerApplication(const RequestContext& context, Request* request);
Reply unregisterApplication(const RequestContext& context, Request* request);
Reply goOnline(const RequestContext& context, Request* request);
Reply goOffline(const RequestContext& context, Request* request);
Reply takeRow(const RequestContext& context, Request* request);
Reply tellApplications(const RequestContext& context, Request* request);
Reply tellHelp(const RequestContext& context, Request* request);
Reply tellAttributes(const RequestContext& context, Request* request);
Reply subscribeToRows(const RequestContext& context, Request* request);
Reply subscribeToStatus(const RequestContext& context, Request* request);
Reply startAction(const RequestContext& context, Request* request);
Reply tellActionResult(const RequestContext& context, Request* request);
Reply deferReport(const RequestContext& context, Request* request);

}  // namespace dch

#endif  // DCH_CORE_REQUESTS_H
