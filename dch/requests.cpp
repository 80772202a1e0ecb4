#include "dch/requests.h"

#include <new>
#include <utility>

#include "suite/zorp.h"
#include "zordchcl/messages.h"
#include "zordchcl/zordchcl.h"

namespace dch {

namespace {

// No registered name is longer, so a longer one is simply not found.
constexpr std::size_t maxAttributeName = PushSocket::maxMessageBytes;
constexpr short noRequestCode = 0;

bool lengthWordIsRight(const IncomingMessage& message) {
  return message.received >= ZOR0_LENGTH_WORD_SIZE &&
         ZOR0_MessageLength(message.bytes) == message.received;
}

// Whether the message is what this server itself answers. Such a message is never answered: two
// servers that are made to believe that the other one asked would never stop.
bool isAnswer(const IncomingMessage& message) {
  std::string_view text;
  if (FieldReader(message.bytes, message.received).readResponse(&text)) return true;
  FieldReader fields(message.bytes, message.received);
  ZORA_Long value;
  if (!fields.readLong(DCH_status, &value)) return false;
  return fields.atEnd() || (fields.readLong(DCH_handle, &value) && fields.atEnd());
}

const char* nameOfRequest(short code) {
  switch (static_cast<DCH_RequestCode>(code)) {
    case DCH_REQUEST_REGISTER:
      return "register";
    case DCH_REQUEST_ONLINE:
      return "online";
    case DCH_REQUEST_UNREGISTER:
      return "unregister";
    case DCH_REQUEST_OFFLINE:
      return "offline";
    case DCH_REQUEST_DATA:
      return "data";
    case DCH_REQUEST_APPLICATIONS:
      return "applications";
    case DCH_REQUEST_HELP:
      return "help";
    case DCH_REQUEST_ATTRIBUTES:
      return "attributes";
    case DCH_REQUEST_DATA_SUBSCRIPTION:
      return "subscription";
    case DCH_REQUEST_STATUS_SUBSCRIPTION:
      return "status subscription";
    case DCH_REQUEST_ACTION:
      return "action";
    case DCH_REQUEST_ACTION_RESULTS:
      return "action results";
    case DCH_REQUEST_DEFER_REPORT:
      return "deferral";
  }
  return "unknown request";
}

// These requests have no answer. Over datagrams their sender would take one for something else that
// it waits for.
Answer::Form formOfAnswer(short code, bool isDatagram) {
  switch (static_cast<DCH_RequestCode>(code)) {
    case DCH_REQUEST_ONLINE:
      return Answer::Form::statusAndHandle;
    case DCH_REQUEST_DATA_SUBSCRIPTION:
    case DCH_REQUEST_STATUS_SUBSCRIPTION:
    case DCH_REQUEST_ACTION:
    case DCH_REQUEST_DEFER_REPORT:
      if (isDatagram) return Answer::Form::none;
      break;
    case DCH_REQUEST_REGISTER:
    case DCH_REQUEST_UNREGISTER:
    case DCH_REQUEST_OFFLINE:
    case DCH_REQUEST_DATA:
    case DCH_REQUEST_APPLICATIONS:
    case DCH_REQUEST_HELP:
    case DCH_REQUEST_ATTRIBUTES:
    case DCH_REQUEST_ACTION_RESULTS:
      break;
  }
  return Answer::Form::status;
}

Outcome done(std::vector<StatusEvent> statusEvents = {}) {
  return {{Answer::Form::status, DCH_STATUS_OK, 0}, nullptr, std::move(statusEvents)};
}

}  // namespace

Outcome Requests::handle(const IncomingMessage& message) {
  if (message.isDatagram() && lengthWordIsRight(message) && isAnswer(message)) {
    _log.write("answer from %s ignored", message.sender.text().data());
    return {};
  }
  Request request{message, FieldReader(message.bytes, message.received), noRequestCode};
  if (!request.fields.readShort(DCH_requestType, &request.code))
    return refused(request, DCH_STATUS_MALFORMED, "no request code");
  if (!lengthWordIsRight(message))
    return refused(request, DCH_STATUS_MALFORMED, "not as long as its length word says");
  try {
    return dispatch(&request);
  } catch (const std::bad_alloc&) {
    return refused(request, DCH_STATUS_NOT_STORED, "no memory");
  }
}

Outcome Requests::dispatch(Request* request) {
  switch (static_cast<DCH_RequestCode>(request->code)) {
    case DCH_REQUEST_REGISTER:
      return registration(request);
    case DCH_REQUEST_ONLINE:
      return online(request);
    case DCH_REQUEST_UNREGISTER:
      return unregister(request);
    case DCH_REQUEST_OFFLINE:
      return offline(request);
    case DCH_REQUEST_DATA:
      return data(request);
    case DCH_REQUEST_APPLICATIONS:
    case DCH_REQUEST_HELP:
    case DCH_REQUEST_ATTRIBUTES:
      return catalogue(request);
    case DCH_REQUEST_DATA_SUBSCRIPTION:
      return subscription(request);
    case DCH_REQUEST_STATUS_SUBSCRIPTION:
      return statusSubscription(request);
    case DCH_REQUEST_ACTION:
      return action(request);
    case DCH_REQUEST_ACTION_RESULTS:
      return actionResults(request);
    case DCH_REQUEST_DEFER_REPORT:
      return deferral(request);
  }
  return refused(*request, DCH_STATUS_MALFORMED);
}

Outcome Requests::registration(Request* request) {
  FieldReader& fields = request->fields;
  std::string_view name, key, text;
  if (request->message.received > ZOR0_MAX_REQUEST_SIZE ||
      !fields.readText(DCH_applName, DCH_MAX_APPL_NAME, &name) ||
      !fields.readText(DCH_applKey, ZORA_APPL_KEY_LENGTH, &key) || !fields.readResponse(&text) ||
      !fields.atEnd())
    return refused(*request, DCH_STATUS_MALFORMED);

  suite::Registration parsed;
  std::string error;
  if (!suite::parseRegistration(text, &parsed, &error))
    return refused(*request, DCH_STATUS_MALFORMED, error);
  if (parsed.applName != name || parsed.applKey != key)
    return refused(*request, DCH_STATUS_MALFORMED, "its text names another application");
  std::vector<StatusEvent> events = eventsOf(name, request->code);
  addEvent(&events, {name, {}, {}}, request->code);
  const DCH_Status status = _registry.registerApplication(parsed);
  if (status != DCH_STATUS_OK) return refused(*request, status);
  _log.write("registered %s (key %s, type %s, %zu group(s))", printable(parsed.applName).c_str(),
             printable(parsed.applKey).c_str(), parsed.type.c_str(), parsed.groups.size());
  std::erase_if(events, [&](const StatusEvent& event) {
    return _registry.findOnline(event.handle) != nullptr;
  });
  return done(std::move(events));
}

Outcome Requests::online(Request* request) {
  FieldReader& fields = request->fields;
  SourceNames names;
  if (!fields.readText(DCH_applName, DCH_MAX_APPL_NAME, &names.application) ||
      !fields.readText(DCH_attrGroup, DCH_MAX_ATTR_GROUP, &names.group) ||
      !fields.readText(DCH_sourceName, DCH_MAX_SOURCE_NAME, &names.source) || !fields.atEnd())
    return refused(*request, DCH_STATUS_MALFORMED);
  Outcome outcome;
  const bool wasOnline = _registry.isOnline(names);
  if (!wasOnline) addEvent(&outcome.statusEvents, names, request->code);
  ZORA_Long handle = 0;
  const DCH_Status status = _registry.goOnline(names, &handle);
  if (status != DCH_STATUS_OK) return refused(*request, status);
  // A source that sends rarely makes sure of its handle before each row.
  if (!wasOnline)
    _log.write("on line: %s %s %s, handle %d", printable(names.application).c_str(),
               printable(names.group).c_str(), printable(names.source).c_str(),
               static_cast<int>(handle));
  outcome.answer = {Answer::Form::statusAndHandle, DCH_STATUS_OK, handle};
  return outcome;
}

Outcome Requests::offline(Request* request) {
  ZORA_Long handle = 0;
  if (!request->fields.readLong(DCH_handle, &handle) || !request->fields.atEnd())
    return refused(*request, DCH_STATUS_MALFORMED);
  std::vector<StatusEvent> events;
  const OnlineSource* const source = _registry.findOnline(handle);
  if (source != nullptr) addEvent(&events, source->names(), request->code);
  const DCH_Status status = _registry.goOffline(handle);
  if (status != DCH_STATUS_OK) return refused(*request, status);
  _log.write("off line: handle %d", static_cast<int>(handle));
  return done(std::move(events));
}

Outcome Requests::unregister(Request* request) {
  std::string_view name;
  if (!request->fields.readText(DCH_applName, DCH_MAX_APPL_NAME, &name) || !request->fields.atEnd())
    return refused(*request, DCH_STATUS_MALFORMED);
  std::vector<StatusEvent> events = eventsOf(name, request->code);
  addEvent(&events, {name, {}, {}}, request->code);
  const DCH_Status status = _registry.unregisterApplication(name);
  if (status != DCH_STATUS_OK) return refused(*request, status);
  _log.write("unregistered %s", printable(name).c_str());
  return done(std::move(events));
}

Outcome Requests::data(Request* request) {
  FieldReader& fields = request->fields;
  ZORA_Long handle = 0;
  short dataCode = 0;
  if (request->message.received > PushSocket::maxMessageBytes ||
      !fields.readLong(DCH_handle, &handle) || !fields.readShort(DCH_dataCode, &dataCode))
    return refused(*request, DCH_STATUS_MALFORMED);
  const OnlineSource* const source = _registry.findOnline(handle);
  if (source == nullptr) return refused(*request, DCH_STATUS_UNKNOWN_HANDLE);
  DCH_Status status = checkAttributes(&fields, *source->group);
  if (status == DCH_STATUS_OK) status = _registry.storeRow(*source, request->message.text());
  if (status != DCH_STATUS_OK) return refused(*request, status);
  Outcome outcome = done();
  outcome.source = source;
  return outcome;
}

DCH_Status Requests::checkAttributes(FieldReader* fields, const AttributeGroup& group) {
  while (!fields->atEnd()) {
    std::string_view name;
    char letter = '\0';
    ZORA_Long length = 0;
    if (!fields->readText(DCH_attrName, maxAttributeName, &name) ||
        !fields->readAttributeValue(&letter, &length))
      return DCH_STATUS_MALFORMED;
    const auto attribute = group.find(name);
    if (attribute == group.end()) return DCH_STATUS_UNKNOWN_ATTRIBUTE;
    if (letter != attribute->second.letter || length > attribute->second.size)
      return DCH_STATUS_MALFORMED;
  }
  return DCH_STATUS_OK;
}

std::vector<StatusEvent> Requests::eventsOf(std::string_view application, short code) const {
  std::vector<StatusEvent> events;
  if (!_publisher.hasSubscribers(statusTopic)) return events;
  _registry.visitOnline(application, [&](const OnlineSource& source) {
    events.push_back(statusEvent(source.names(), code, source.handle));
  });
  return events;
}

void Requests::addEvent(std::vector<StatusEvent>* events, const SourceNames& names,
                        short code) const {
  if (_publisher.hasSubscribers(statusTopic)) events->push_back(statusEvent(names, code));
}

Outcome Requests::refused(const Request& request, DCH_Status status, std::string_view reason) {
  const char* const separator = reason.empty() ? "" : ": ";
  _log.write("refused %s (0x%04x) from %s: status %d, %s%s%s", nameOfRequest(request.code),
             static_cast<unsigned>(static_cast<unsigned short>(request.code)),
             request.message.sender.text().data(), static_cast<int>(status), DCH_statusText(status),
             separator, printable(reason).c_str());
  return {{formOfAnswer(request.code, request.message.isDatagram()), status, 0}, nullptr, {}};
}

}  // namespace dch
