#include "dch/web/applications_json.h"

#include <unordered_map>
#include <vector>

#include "dch/core/registry.h"
#include "dch/web/moment.h"
#include "dch/web/row_values.h"

namespace dch {

namespace {

using Sources = std::vector<const Snapshot::SourceState*>;

std::unordered_map<std::string, Sources> byTopic(const Snapshot& snapshot) {
  std::unordered_map<std::string, Sources> topics;
  for (const Snapshot::SourceState& each : snapshot.sources)
    topics[topicOf(each.application, each.group)].push_back(&each);
  return topics;
}

void write(Json* json, const suite::RegisteredAttribute& attribute) {
  json->beginObject();
  json->key("name").text(attribute.name);
  json->key("letter").text({&attribute.letter, 1});
  json->key("size").number(attribute.size);
  json->key("help").text(attribute.help);
  json->endObject();
}

void write(Json* json, const Snapshot::SourceState& source) {
  json->beginObject();
  json->key("name").text(source.name);
  json->key("handle").number(source.handle);
  json->key("online").boolean(source.isOnline);
  json->key("last_row");
  if (source.rowTime != 0)
    json->text(momentText(source.rowTime));
  else
    json->null();
  json->key("values");
  writeValues(json, source.message);
  json->endObject();
}

void write(Json* json, const suite::RegisteredGroup& group, const Sources& sources) {
  json->beginObject().key("name").text(group.name);
  json->key("attributes").beginArray();
  for (const suite::RegisteredAttribute& each : group.attributes) write(json, each);
  json->endArray().key("sources").beginArray();
  for (const Snapshot::SourceState* each : sources) write(json, *each);
  json->endArray().endObject();
}

}  // namespace

std::string applicationsJson(const Snapshot& snapshot) {
  const std::unordered_map<std::string, Sources> topics = byTopic(snapshot);
  Json json;
  json.beginObject().key("applications").beginArray();
  for (const auto& application : *snapshot.applications) {
    json.beginObject();
    json.key("name").text(application->applName);
    json.key("key").text(application->applKey);
    json.key("type").text(application->type);
    json.key("help").text(application->help);
    json.key("groups").beginArray();
    for (const suite::RegisteredGroup& group : application->groups) {
      const auto sources = topics.find(topicOf(application->applName, group.name));
      write(&json, group, sources != topics.end() ? sources->second : Sources());
    }
    json.endArray().endObject();
  }
  json.endArray().endObject();
  return json.take();
}

void writeValues(Json* json, std::string_view message) {
  json->beginObject();
  for (const NamedValue& each : valuesOf(message)) json->key(each.name).value(each.value);
  json->endObject();
}

}  // namespace dch
