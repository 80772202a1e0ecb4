// The requests of data providers.
#include "dch/core/requests.h"
#include "suite/zorp.h"
#include "zordchcl/messages.h"
#include "zordchcl/zordchcl.h"

namespace dch {

namespace {

// No registered name is longer, so a longer one is simply not found.
constexpr std::size_t maxAttributeName = maxDatagramBytes;

DCH_Status checkAttributes(FieldReader* fields, const Attributes& attributes) {
  while (!fields->atEnd()) {
    std::string_view name, value;
    char letter = '\0';
    if (!fields->readText(DCH_attrName, maxAttributeName, &name) ||
        !fields->readAttributeValue(&letter, &value))
      return DCH_STATUS_MALFORMED;
    const auto attribute = attributes.find(name);
    if (attribute == attributes.end()) return DCH_STATUS_UNKNOWN_ATTRIBUTE;
    if (letter != attribute->second.letter ||
        value.size() > static_cast<std::size_t>(attribute->second.size))
      return DCH_STATUS_MALFORMED;
  }
  return DCH_STATUS_OK;
}

}  // namespace

Reply registerApplication(const RequestContext& context, Request* request) {
  FieldReader& fields = request->fields;
  std::string_view name, key, text;
  if (request->message.bytes.size() > ZOR0_MAX_REQUEST_SIZE ||
      !fields.readText(DCH_applName, DCH_MAX_APPL_NAME, &name) ||
      !fields.readText(DCH_applKey, ZORA_APPL_KEY_LENGTH, &key) || !fields.readResponse(&text) ||
      !fields.atEnd())
    return Refusal{DCH_STATUS_MALFORMED};

  Registered change;
  std::string error;
  if (!suite::parseRegistration(text, &change.registration, &error))
    return Refusal{DCH_STATUS_MALFORMED, error};
  if (change.registration.applName != name || change.registration.applKey != key)
    return Refusal{DCH_STATUS_MALFORMED, "its text names another application"};
  if (context.holdUp(name)) return Postponed{name};
  const DCH_Status status = context.registry.check(change.registration);
  if (status != DCH_STATUS_OK) return Refusal{status};
  return Change{std::move(change)};
}

Reply unregisterApplication(const RequestContext& context, Request* request) {
  std::string_view name;
  if (!request->fields.readText(DCH_applName, DCH_MAX_APPL_NAME, &name) || !request->fields.atEnd())
    return Refusal{DCH_STATUS_MALFORMED};
  if (context.holdUp(name)) return Postponed{name};
  const DCH_Status status = context.registry.checkUnregistration(name);
  if (status != DCH_STATUS_OK) return Refusal{status};
  return Change{Unregistered{std::string(name)}};
}

Reply goOnline(const RequestContext& context, Request* request) {
  FieldReader& fields = request->fields;
  SourceNames names;
  if (!fields.readText(DCH_applName, DCH_MAX_APPL_NAME, &names.application) ||
      !fields.readText(DCH_attrGroup, DCH_MAX_ATTR_GROUP, &names.group) ||
      !fields.readText(DCH_sourceName, DCH_MAX_SOURCE_NAME, &names.source) || !fields.atEnd())
    return Refusal{DCH_STATUS_MALFORMED};
  const ZORA_Long handle = context.registry.handleFor(names);
  if (context.holdUp(names.application, handle)) return Postponed{names.application};
  // A source that sends rarely makes sure of its handle before each row.
  if (context.registry.findOnline(handle) != nullptr) return Result{DCH_STATUS_OK, handle};
  const DCH_Status status = context.registry.check(names);
  if (status != DCH_STATUS_OK) return Refusal{status};
  return Change{WentOnline{std::string(names.application), std::string(names.group),
                           std::string(names.source), handle}};
}

Reply goOffline(const RequestContext& context, Request* request) {
  ZORA_Long handle = 0;
  if (!request->fields.readLong(DCH_handle, &handle) || !request->fields.atEnd())
    return Refusal{DCH_STATUS_MALFORMED};
  const Source* const source = context.registry.findSource(handle);
  if (source == nullptr) return Refusal{DCH_STATUS_UNKNOWN_HANDLE};
  const std::string_view application = source->names().application;
  if (context.holdUp(application, handle)) return Postponed{application};
  if (!source->isOnline) return Refusal{DCH_STATUS_UNKNOWN_HANDLE};
  return Change{WentOffline{handle}};
}

// Of a source that is on line it waits for no change, but behind requests that came earlier.
Reply takeRow(const RequestContext& context, Request* request) {
  const std::string_view message = request->message.bytes;
  FieldReader& fields = request->fields;
  ZORA_Long handle = 0;
  short dataCode = 0;
  if (message.size() > maxDatagramBytes || !fields.readLong(DCH_handle, &handle) ||
      !fields.readShort(DCH_dataCode, &dataCode))
    return Refusal{DCH_STATUS_MALFORMED};
  const Source* const source = context.registry.findSource(handle);
  if (source == nullptr) return Refusal{DCH_STATUS_UNKNOWN_HANDLE};
  const std::string_view application = source->names().application;
  if (context.postponed.has(application) ||
      (!source->isOnline && context.holdUp(application, handle)))
    return Postponed{application};
  if (!source->isOnline) return Refusal{DCH_STATUS_UNKNOWN_HANDLE};
  const DCH_Status status = checkAttributes(&fields, source->group->attributes);
  if (status != DCH_STATUS_OK) return Refusal{status};
  return Change{Row{handle, request->message.receivedAt, std::string(message)}};
}

}  // namespace dch
