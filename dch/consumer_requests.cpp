// The requests of data consumers.
#include <optional>
#include <utility>

#include "dch/catalogue.h"
#include "dch/requests.h"
#include "suite/zorp.h"
#include "zordchcl/messages.h"
#include "zordchcl/zordchcl.h"

namespace dch {

namespace {

// What subscribers get is pushed as datagrams, and a connection has no address for those.
constexpr char noDatagram[] = "a subscription has to be a datagram";

// Reads the last field of a subscription.
bool readSwitch(FieldReader* fields, ZORA_Long* wanted) {
  return fields->readLong(DCH_status, wanted) && fields->atEnd() &&
         (*wanted == DCH_SUBSCRIPTION_START || *wanted == DCH_SUBSCRIPTION_STOP);
}

// What is asked about an application. A name that is too long is simply not found.
std::string catalogueText(const Registry& registry, short code,
                          std::optional<std::string_view> name) {
  switch (code) {
    case DCH_REQUEST_ATTRIBUTES:
      return attributeLines(registry, *name);
    case DCH_REQUEST_HELP:
      return helpText(registry, *name);
    default:
      return applicationLines(registry, name);
  }
}

}  // namespace

Outcome Requests::catalogue(Request* request) {
  FieldReader& fields = request->fields;
  std::optional<std::string_view> name;
  const bool asksForAll = request->code == DCH_REQUEST_APPLICATIONS && fields.atEnd();
  if (!asksForAll && (!fields.readText(DCH_applName, request->message.received, &name.emplace()) ||
                      !fields.atEnd()))
    return refused(*request, DCH_STATUS_MALFORMED);
  std::string text = catalogueText(_registry, request->code, name);
  return {{Answer::Form::text, DCH_STATUS_OK, 0, std::move(text)}, nullptr, {}};
}

Outcome Requests::subscription(Request* request) {
  FieldReader& fields = request->fields;
  std::string_view application, group;
  ZORA_Long wanted = 0;
  if (!fields.readText(DCH_applName, DCH_MAX_APPL_NAME, &application) ||
      !fields.readText(DCH_attrGroup, DCH_MAX_ATTR_GROUP, &group) || !readSwitch(&fields, &wanted))
    return refused(*request, DCH_STATUS_MALFORMED);
  if (!request->message.isDatagram()) return refused(*request, DCH_STATUS_MALFORMED, noDatagram);
  if (wanted == DCH_SUBSCRIPTION_START)
    subscribe(application, group, request->message.sender);
  else
    withdraw(application, group, request->message.sender);
  return {};
}

void Requests::subscribe(std::string_view application, std::string_view group,
                         const PeerAddress& address) {
  const Subscriptions::Added added = _publisher.subscribe(topicOf(application, group), address);
  // A subscriber that hears nothing subscribes again every few seconds.
  if (added == Subscriptions::Added::alreadyThere) return;
  const bool hasRoom = added == Subscriptions::Added::yes;
  _log.write("%s %s to %s %s", hasRoom ? "subscribed" : "no room to subscribe",
             address.text().data(), printable(application).c_str(), printable(group).c_str());
}

void Requests::withdraw(std::string_view application, std::string_view group,
                        const PeerAddress& address) {
  const bool existed = _publisher.withdraw(topicOf(application, group), address);
  _log.write("%s %s from %s %s", existed ? "withdrew" : "nothing to withdraw for",
             address.text().data(), printable(application).c_str(), printable(group).c_str());
}

Outcome Requests::statusSubscription(Request* request) {
  ZORA_Long wanted = 0;
  if (!readSwitch(&request->fields, &wanted)) return refused(*request, DCH_STATUS_MALFORMED);
  if (!request->message.isDatagram()) return refused(*request, DCH_STATUS_MALFORMED, noDatagram);
  const PeerAddress& address = request->message.sender;
  if (wanted == DCH_SUBSCRIPTION_START) {
    subscribeToStatus(address);
  } else {
    const bool existed = _publisher.withdraw(statusTopic, address);
    _log.write("%s %s from provider status", existed ? "withdrew" : "nothing to withdraw for",
               address.text().data());
  }
  return {};
}

// One that asks again is told again: it may be a new client on the port of one that is gone.
void Requests::subscribeToStatus(const PeerAddress& address) {
  if (_publisher.subscribe(statusTopic, address) == Subscriptions::Added::noRoom) {
    _log.write("no room to subscribe %s to provider status", address.text().data());
    return;
  }
  _log.write("subscribed %s to provider status", address.text().data());
  _snapshots.start(address);
}

// The parameters may hold a password: they are shown to nobody, and the program gets none of them.
Outcome Requests::action(Request* request) {
  FieldReader& fields = request->fields;
  const std::size_t anyLength = request->message.received;
  short type = 0;
  ZORA_Long id = 0;
  std::string_view owner, node, subnode, name, parameters;
  if (!fields.readShort(DCH_actionType, &type) ||
      !fields.readText(DCH_actionOwner, anyLength, &owner) ||
      !fields.readText(DCH_sourceName, anyLength, &node) ||
      !fields.readText(DCH_sourceName, anyLength, &subnode) ||
      !fields.readText(DCH_actionName, anyLength, &name) || !fields.readLong(DCH_actionID, &id) ||
      (!fields.atEnd() && !fields.readText(DCH_actionParms, anyLength, &parameters)) ||
      !fields.atEnd())
    return refused(*request, DCH_STATUS_MALFORMED);
  _actions.start(name, id);
  return {};
}

Outcome Requests::actionResults(Request* request) {
  ZORA_Long id = 0;
  if (!request->fields.readLong(DCH_actionID, &id) || !request->fields.atEnd())
    return refused(*request, DCH_STATUS_MALFORMED);
  const Actions::Result result = _actions.resultFor(request->message, id);
  if (!result.isKnown) return {};
  return {{Answer::Form::status, result.status, 0}, nullptr, {}};
}

Outcome Requests::deferral(Request* request) {
  FieldReader& fields = request->fields;
  const std::size_t anyLength = request->message.received;
  Deferral deferral;
  std::string_view key, table, source;
  // Many are kept, so none may be larger than a datagram that the server reads.
  if (anyLength > ZOR0_MAX_REQUEST_SIZE || !fields.readLong(DCH_actionID, &deferral.actionId) ||
      !fields.readLong(DCH_peltaObject, &deferral.peltaObject) ||
      !fields.readLong(DCH_currentTime, &deferral.currentTime) ||
      !fields.readText(DCH_applKey, anyLength, &key) ||
      !fields.readText(DCH_tableName, anyLength, &table) ||
      !fields.readText(DCH_sourceName, anyLength, &source) || !fields.atEnd())
    return refused(*request, DCH_STATUS_MALFORMED);
  deferral.applKey = key;
  deferral.tableName = table;
  deferral.sourceName = source;
  _log.write("deferred: %s", deferral.text().c_str());
  _deferrals.add(std::move(deferral));
  return {};
}

}  // namespace dch
