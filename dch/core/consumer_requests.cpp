// The requests of data consumers.
#include <optional>
#include <utility>

#include "dch/core/catalogue.h"
#include "dch/core/requests.h"
#include "dch/core/status_events.h"
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

// Reads the name that is asked for, the last field.
bool readName(Request* request, std::string_view* name) {
  return request->fields.readText(DCH_applName, request->message.bytes.size(), name) &&
         request->fields.atEnd();
}

void subscribe(const RequestContext& context, std::string_view application, std::string_view group,
               const PeerAddress& address) {
  const Subscriptions::Added added =
      context.publisher.subscribe(topicOf(application, group), address);
  // A subscriber that hears nothing subscribes again every few seconds.
  if (added == Subscriptions::Added::alreadyThere) return;
  const bool hasRoom = added == Subscriptions::Added::yes;
  if (!hasRoom) context.counters.add(Counter::subscriptionsRefused);
  context.log.write("%s %s to %s %s", hasRoom ? "subscribed" : "no room to subscribe",
                    address.text().data(), printable(application).c_str(),
                    printable(group).c_str());
}

void withdraw(const RequestContext& context, std::string_view application, std::string_view group,
              const PeerAddress& address) {
  const bool existed = context.publisher.withdraw(topicOf(application, group), address);
  context.log.write("%s %s from %s %s", existed ? "withdrew" : "nothing to withdraw for",
                    address.text().data(), printable(application).c_str(),
                    printable(group).c_str());
}

// One that asks again is told again: it may be a new client on the port of one that is gone.
void followStatus(const RequestContext& context, const PeerAddress& address) {
  if (context.publisher.subscribe(statusTopic, address) == Subscriptions::Added::noRoom) {
    context.counters.add(Counter::subscriptionsRefused);
    context.log.write("no room to subscribe %s to provider status", address.text().data());
    return;
  }
  context.log.write("subscribed %s to provider status", address.text().data());
  context.snapshots.start(address);
}

}  // namespace

Reply tellApplications(const RequestContext& context, Request* request) {
  std::optional<std::string_view> name;
  if (!request->fields.atEnd() && !readName(request, &name.emplace()))
    return Refusal{DCH_STATUS_MALFORMED};
  return Text{name ? applicationLines(context.allProviders(), name)
                   : context.catalogue.allApplications()};
}

Reply tellHelp(const RequestContext& context, Request* request) {
  std::string_view name;
  if (!readName(request, &name)) return Refusal{DCH_STATUS_MALFORMED};
  return Text{helpText(context.allProviders(), name)};
}

Reply tellAttributes(const RequestContext& context, Request* request) {
  std::string_view name;
  if (!readName(request, &name)) return Refusal{DCH_STATUS_MALFORMED};
  return Text{context.catalogue.attributes(name)};
}

Reply subscribeToRows(const RequestContext& context, Request* request) {
  FieldReader& fields = request->fields;
  std::string_view application, group;
  ZORA_Long wanted = 0;
  if (!fields.readText(DCH_applName, DCH_MAX_APPL_NAME, &application) ||
      !fields.readText(DCH_attrGroup, DCH_MAX_ATTR_GROUP, &group) || !readSwitch(&fields, &wanted))
    return Refusal{DCH_STATUS_MALFORMED};
  const Origin& origin = request->message.origin;
  if (!origin.isDatagram()) return Refusal{DCH_STATUS_MALFORMED, noDatagram};
  if (wanted == DCH_SUBSCRIPTION_START)
    subscribe(context, application, group, origin.peer);
  else
    withdraw(context, application, group, origin.peer);
  return NoAnswer{};
}

Reply subscribeToStatus(const RequestContext& context, Request* request) {
  ZORA_Long wanted = 0;
  if (!readSwitch(&request->fields, &wanted)) return Refusal{DCH_STATUS_MALFORMED};
  const Origin& origin = request->message.origin;
  if (!origin.isDatagram()) return Refusal{DCH_STATUS_MALFORMED, noDatagram};
  if (wanted == DCH_SUBSCRIPTION_START) {
    followStatus(context, origin.peer);
  } else {
    const bool existed = context.publisher.withdraw(statusTopic, origin.peer);
    context.log.write("%s %s from provider status",
                      existed ? "withdrew" : "nothing to withdraw for", origin.peer.text().data());
  }
  return NoAnswer{};
}

// The parameters may hold a password: they are shown to nobody, and the program gets none of them.
Reply startAction(const RequestContext& context, Request* request) {
  FieldReader& fields = request->fields;
  const std::size_t anyLength = request->message.bytes.size();
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
    return Refusal{DCH_STATUS_MALFORMED};
  Change change =
      ActionStarted{id, std::string(name), std::string(owner), request->message.receivedAt};
  if (!context.actions.request(id, name, request->message.origin.peer)) return NoAnswer{};
  return change;
}

Reply tellActionResult(const RequestContext& context, Request* request) {
  ZORA_Long id = 0;
  if (!request->fields.readLong(DCH_actionID, &id) || !request->fields.atEnd())
    return Refusal{DCH_STATUS_MALFORMED};
  const Actions::Result result = context.actions.resultFor(request->message.origin, id);
  if (!result.isKnown) return Waits{};
  return ActionResult{result.status};
}

Reply deferReport(const RequestContext&, Request* request) {
  FieldReader& fields = request->fields;
  const std::size_t anyLength = request->message.bytes.size();
  Deferral deferral;
  std::string_view key, table, source;
  // Many are kept, so none may be larger than a datagram that the server reads.
  if (anyLength > ZOR0_MAX_REQUEST_SIZE || !fields.readLong(DCH_actionID, &deferral.actionId) ||
      !fields.readLong(DCH_peltaObject, &deferral.peltaObject) ||
      !fields.readLong(DCH_currentTime, &deferral.currentTime) ||
      !fields.readText(DCH_applKey, anyLength, &key) ||
      !fields.readText(DCH_tableName, anyLength, &table) ||
      !fields.readText(DCH_sourceName, anyLength, &source) || !fields.atEnd())
    return Refusal{DCH_STATUS_MALFORMED};
  deferral.applKey = key;
  deferral.tableName = table;
  deferral.sourceName = source;
  Deferred change;
  change.deferral.push_back(std::move(deferral));
  return Change{std::move(change)};
}

}  // namespace dch
