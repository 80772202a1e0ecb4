#include "dch/web/state_json.h"

#include "dch/clock.h"
#include "dch/core/requests.h"
#include "dch/core/site_report.h"
#include "dch/web/json.h"
#include "dch/web/moment.h"

namespace dch {

namespace {

void writeFigures(Json* json, const Counters& counters, bool gauges) {
  json->beginObject();
  for (const CounterDescription& each : counterDescriptions)
    if (isGauge(each.counter) == gauges)
      json->key(each.name).number(static_cast<std::int64_t>(counters[each.counter]));
  json->endObject();
}

void writeHelp(Json* json) {
  json->beginObject();
  for (const CounterDescription& each : counterDescriptions) json->key(each.name).text(each.help);
  json->endObject();
}

void writeRequests(Json* json, const RequestCounts& counts) {
  json->beginArray();
  for (const RequestType& type : requestTypes()) {
    const RequestCounts::ByStatus& byStatus = counts.of(type);
    for (std::size_t column = 0; column < byStatus.size(); ++column) {
      if (byStatus.at(column) == 0) continue;
      json->beginObject();
      json->key("request").text(type.name);
      json->key("code").number(type.code);
      json->key("status").number(DCH_statusTable[column].number);
      json->key("text").text(DCH_statusTable[column].text);
      json->key("count").number(static_cast<std::int64_t>(byStatus.at(column)));
      json->endObject();
    }
  }
  json->endArray();
}

std::string sinceText(const SiteState& site) {
  const auto age = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now() - site.since);
  return momentText(now() - age.count());
}

void writeNumber(Json* json, const char* key, std::optional<std::int64_t> number) {
  json->key(key);
  if (number)
    json->number(*number);
  else
    json->null();
}

void writeSites(Json* json, const std::vector<SiteState>& sites) {
  const auto told = sitesByUrgency(sites, mostSitesTold);
  json->key("sites").beginArray();
  for (const SiteState* each : told) {
    json->beginObject();
    json->key("site").text(each->name);
    json->key("state").text(stateWord(*each));
    json->key("since").text(sinceText(*each));
    writeNumber(json, "changes_behind", each->behind);
    writeNumber(json, "changes_uncollected", each->uncollected);
    json->key("version").text(each->version);
    json->endObject();
  }
  json->endArray();
  json->key("sites_left_out").number(static_cast<std::int64_t>(sites.size() - told.size()));
}

}  // namespace

std::string stateJson(const ServerFacts& facts, const Counters& counters, const Figures& figures,
                      const std::vector<SiteState>& sites) {
  Json json;
  json.beginObject();
  json.key("version").text(facts.version);
  json.key("started").text(momentText(facts.started));
  json.key("state").text(facts.state);
  json.key("counters");
  writeFigures(&json, counters, false);
  json.key("gauges");
  writeFigures(&json, counters, true);
  json.key("deferrals").number(static_cast<std::int64_t>(figures.deferrals));
  json.key("requests");
  writeRequests(&json, figures.requests);
  writeSites(&json, sites);
  json.key("help");
  writeHelp(&json);
  json.endObject();
  return json.take();
}

}  // namespace dch
