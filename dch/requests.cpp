#include "dch/requests.h"

#include <new>

#include "suite/zorp.h"
#include "zordchcl/messages.h"
#include "zordchcl/zordchcl.h"

namespace dch {

namespace {

constexpr std::size_t applKeyLength = 3;
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
  FieldReader fields(message.bytes, message.received);
  ZORA_Long value;
  if (!fields.readLong(DCH_status, &value)) return false;
  return fields.atEnd() || (fields.readLong(DCH_handle, &value) && fields.atEnd());
}

const char* nameOfRequest(short code) {
  switch (code) {
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
    case DCH_REQUEST_DATA_SUBSCRIPTION:
      return "subscription";
    default:
      return "unknown request";
  }
}

// A subscription over datagrams has no answer: its sender would take it for data.
Answer::Form formOfAnswer(short code, bool isDatagram) {
  if (code == DCH_REQUEST_ONLINE) return Answer::Form::statusAndHandle;
  if (code == DCH_REQUEST_DATA_SUBSCRIPTION && isDatagram) return Answer::Form::none;
  return Answer::Form::status;
}

Outcome done(Answer::Form form = Answer::Form::status) {
  return {{form, DCH_STATUS_OK, 0}};
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
  switch (request->code) {
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
    case DCH_REQUEST_DATA_SUBSCRIPTION:
      return subscription(request);
    default:
      return refused(*request, DCH_STATUS_MALFORMED);
  }
}

Outcome Requests::registration(Request* request) {
  FieldReader& fields = request->fields;
  std::string_view name, key, text;
  if (request->message.received > ZORP_MAX_MESSAGE_SIZE ||
      !fields.readText(DCH_applName, DCH_MAX_APPL_NAME, &name) ||
      !fields.readText(DCH_applKey, applKeyLength, &key) || !fields.readResponse(&text) ||
      !fields.atEnd())
    return refused(*request, DCH_STATUS_MALFORMED);

  suite::Registration parsed;
  std::string error;
  if (!suite::parseRegistration(text, &parsed, &error))
    return refused(*request, DCH_STATUS_MALFORMED, error);
  if (parsed.applName != name || parsed.applKey != key)
    return refused(*request, DCH_STATUS_MALFORMED, "its text names another application");
  const DCH_Status status = _registry.registerApplication(parsed);
  if (status != DCH_STATUS_OK) return refused(*request, status);
  _log.write("registered %s (key %s, type %s, %zu group(s))", parsed.applName.c_str(),
             parsed.applKey.c_str(), parsed.type.c_str(), parsed.groups.size());
  return done();
}

Outcome Requests::online(Request* request) {
  ZORA_Long handle = 0;
  const DCH_Status status = goOnline(request, &handle);
  if (status != DCH_STATUS_OK) return refused(*request, status);
  return {{Answer::Form::statusAndHandle, DCH_STATUS_OK, handle}};
}

DCH_Status Requests::goOnline(Request* request, ZORA_Long* handle) {
  FieldReader& fields = request->fields;
  SourceNames names;
  if (!fields.readText(DCH_applName, DCH_MAX_APPL_NAME, &names.application) ||
      !fields.readText(DCH_attrGroup, DCH_MAX_ATTR_GROUP, &names.group) ||
      !fields.readText(DCH_sourceName, DCH_MAX_SOURCE_NAME, &names.source) || !fields.atEnd())
    return DCH_STATUS_MALFORMED;
  const DCH_Status status = _registry.goOnline(names, handle);
  if (status == DCH_STATUS_OK)
    _log.write("on line: %s %s %s, handle %d", printable(names.application).c_str(),
               printable(names.group).c_str(), printable(names.source).c_str(),
               static_cast<int>(*handle));
  return status;
}

Outcome Requests::offline(Request* request) {
  ZORA_Long handle = 0;
  if (!request->fields.readLong(DCH_handle, &handle) || !request->fields.atEnd())
    return refused(*request, DCH_STATUS_MALFORMED);
  const DCH_Status status = _registry.goOffline(handle);
  if (status != DCH_STATUS_OK) return refused(*request, status);
  _log.write("off line: handle %d", static_cast<int>(handle));
  return done();
}

Outcome Requests::unregister(Request* request) {
  std::string_view name;
  if (!request->fields.readText(DCH_applName, DCH_MAX_APPL_NAME, &name) || !request->fields.atEnd())
    return refused(*request, DCH_STATUS_MALFORMED);
  const DCH_Status status = _registry.unregisterApplication(name);
  if (status != DCH_STATUS_OK) return refused(*request, status);
  _log.write("unregistered %s", printable(name).c_str());
  return done();
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

Outcome Requests::subscription(Request* request) {
  FieldReader& fields = request->fields;
  std::string_view application, group;
  ZORA_Long wanted = 0;
  if (!fields.readText(DCH_applName, DCH_MAX_APPL_NAME, &application) ||
      !fields.readText(DCH_attrGroup, DCH_MAX_ATTR_GROUP, &group) ||
      !fields.readLong(DCH_status, &wanted) || !fields.atEnd() ||
      (wanted != DCH_SUBSCRIPTION_START && wanted != DCH_SUBSCRIPTION_STOP))
    return refused(*request, DCH_STATUS_MALFORMED);
  // Rows are pushed as datagrams, and a connection has no address for those.
  if (!request->message.isDatagram())
    return refused(*request, DCH_STATUS_MALFORMED, "a subscription has to be a datagram");
  if (wanted == DCH_SUBSCRIPTION_START)
    subscribe(application, group, request->message.sender);
  else
    withdraw(application, group, request->message.sender);
  return done(Answer::Form::none);
}

void Requests::subscribe(std::string_view application, std::string_view group,
                         const PeerAddress& address) {
  const bool hasRoom =
      _publisher.subscribe(topicOf(application, group), address) != Subscriptions::Added::noRoom;
  _log.write("%s %s to %s %s", hasRoom ? "subscribed" : "no room to subscribe",
             address.text().data(), printable(application).c_str(), printable(group).c_str());
}

void Requests::withdraw(std::string_view application, std::string_view group,
                        const PeerAddress& address) {
  const bool existed = _publisher.withdraw(topicOf(application, group), address);
  _log.write("%s %s from %s %s", existed ? "withdrew" : "nothing to withdraw for",
             address.text().data(), printable(application).c_str(), printable(group).c_str());
}

Outcome Requests::refused(const Request& request, DCH_Status status, std::string_view reason) {
  const char* const separator = reason.empty() ? "" : ": ";
  _log.write("refused %s (0x%04x) from %s: status %d, %s%s%.*s", nameOfRequest(request.code),
             static_cast<unsigned>(static_cast<unsigned short>(request.code)),
             request.message.sender.text().data(), static_cast<int>(status), DCH_statusText(status),
             separator, static_cast<int>(reason.size()), reason.data());
  return {{formOfAnswer(request.code, request.message.isDatagram()), status, 0}};
}

}  // namespace dch
