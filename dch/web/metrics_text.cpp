#include "dch/web/metrics_text.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <map>
#include <optional>
#include <utility>

#include "dch/core/requests.h"
#include "dch/web/json.h"
#include "dch/web/row_values.h"
#include "dch/web/text_parts.h"

namespace dch {

namespace {

constexpr std::string_view timeSuffix = "_microseconds";

// Of the parameters of a type, 1 where there is none.
double qualityIn(std::string_view parameters) {
  while (!parameters.empty()) {
    const std::string_view each = trimmed(takeUpTo(';', &parameters));
    double quality = 0;
    if (!each.starts_with("q=")) continue;
    const auto end = each.data() + each.size();
    return std::from_chars(each.data() + 2, end, quality).ec == std::errc() ? quality : 0;
  }
  return 1;
}

// How much the header wants it: by the narrowest range that names it.
double qualityOf(std::string_view type, std::string_view accept) {
  const std::string group = std::string(type.substr(0, type.find('/'))) + "/*";
  double quality = 0;
  std::size_t narrowest = 0;
  while (!accept.empty()) {
    std::string_view each = takeUpTo(',', &accept);
    const std::string_view range = trimmed(takeUpTo(';', &each));
    const std::size_t width = range == type ? 3 : range == group ? 2 : range == "*/*" ? 1 : 0;
    if (width <= narrowest) continue;
    narrowest = width;
    quality = qualityIn(each);
  }
  return quality;
}

void appendEscaped(std::string* text, std::string_view value) {
  for (const char each : value) {
    if (each == '\\' || each == '"') *text += '\\';
    if (each == '\n')
      *text += "\\n";
    else
      *text += each;
  }
}

class Metrics {
 public:
  explicit Metrics(MetricsForm form) : _form(form) {}

  // What counts has `_total` behind its name where its values are, and in one form where it is
  // described, too.
  void describeCounter(std::string_view name, std::string_view help) {
    describe(std::string(name) + (_form == MetricsForm::text ? "_total" : ""), "counter", help);
  }
  void describeGauge(std::string_view name, std::string_view help) {
    describe(name, "gauge", help);
  }
  void describe(std::string_view name, std::string_view type, std::string_view help) {
    ((_text += "# HELP ") += name) += ' ';
    (_text += help) += '\n';
    ((_text += "# TYPE ") += name) += ' ';
    (_text += type) += '\n';
  }
  void add(std::string_view nameAndLabels, std::string_view value) {
    (_text += nameAndLabels) += ' ';
    (_text += value) += '\n';
  }
  std::string finish() {
    if (_form == MetricsForm::openMetrics) _text += "# EOF\n";
    return std::move(_text);
  }

 private:
  const MetricsForm _form;
  std::string _text;
};

std::string secondsText(std::uint64_t microsecondCount) {
  char text[32];
  std::snprintf(text, sizeof text, "%llu.%06llu",
                static_cast<unsigned long long>(microsecondCount / 1'000'000),
                static_cast<unsigned long long>(microsecondCount % 1'000'000));
  return text;
}

void addTable(Metrics* metrics, const Counters& counters) {
  for (const CounterDescription& each : counterDescriptions) {
    std::string name = std::string("zordchd_") + each.name;
    const std::uint64_t value = counters[each.counter];
    const bool isTime = name.ends_with(timeSuffix);
    if (isTime) name.replace(name.size() - timeSuffix.size(), timeSuffix.size(), "_seconds");
    const std::string text = isTime ? secondsText(value) : std::to_string(value);
    if (isGauge(each.counter)) {
      metrics->describeGauge(name, each.help);
      metrics->add(name, text);
    } else {
      metrics->describeCounter(name, each.help);
      metrics->add(name + "_total", text);
    }
  }
}

void addRequests(Metrics* metrics, const RequestCounts& counts) {
  metrics->describeCounter("zordchd_requests",
                           "requests by what was asked and the status of the answer");
  for (const RequestType& type : requestTypes()) {
    const RequestCounts::ByStatus& byStatus = counts.of(type);
    for (std::size_t column = 0; column < byStatus.size(); ++column)
      // Those that have never come are not told, but for those that go well: it is known then that
      // there are none.
      if (column == 0 || byStatus.at(column) != 0)
        metrics->add(std::string("zordchd_requests_total{request=\"") + type.name + "\",status=\"" +
                         std::to_string(DCH_statusTable[column].number) + "\"}",
                     std::to_string(byStatus.at(column)));
  }
}

std::string labelsOf(const Snapshot::SourceState& source) {
  std::string labels = "{application=\"";
  appendEscaped(&labels, readable(source.application));
  appendEscaped(&(labels += "\",group=\""), readable(source.group));
  appendEscaped(&(labels += "\",source=\""), readable(source.name));
  return labels += '"';
}

void addValues(Metrics* metrics, const Snapshot& snapshot) {
  metrics->describeGauge("zord_value", "the newest number of an attribute of a source on line");
  for (const Snapshot::SourceState& source : snapshot.sources) {
    if (!source.isOnline) continue;
    const std::string begin = "zord_value" + labelsOf(source) + ",attribute=\"";
    const auto add = [&](std::string_view attribute, std::int64_t number) {
      std::string sample = begin;
      appendEscaped(&sample, readable(attribute));
      metrics->add(sample += "\"}", std::to_string(number));
    };
    for (const NamedValue& each : valuesOf(source.message))
      if (each.value.kind == AttributeValue::Kind::number) add(each.name, each.value.number);
    for (const NamedNumber& each : source.earlier) add(each.name, each.value);
  }
}

void addTimes(Metrics* metrics, const Snapshot& snapshot) {
  metrics->describeGauge("zord_row_time_seconds",
                         "when the newest row of a source on line came, since 1970");
  for (const Snapshot::SourceState& source : snapshot.sources)
    if (source.isOnline && source.rowTime > 0)
      metrics->add("zord_row_time_seconds" + labelsOf(source) + '}',
                   secondsText(static_cast<std::uint64_t>(source.rowTime)));
}

using SitesByLabel = std::map<std::string, const SiteState*>;

// `valueOf` a site may have none.
template <class ValueOf>
void addOfSites(Metrics* metrics, const SitesByLabel& sites, const std::string& name,
                std::string_view help, ValueOf valueOf) {
  bool isDescribed = false;
  for (const auto& [label, site] : sites) {
    const std::optional<std::int64_t> value = valueOf(*site);
    if (!value) continue;
    if (!std::exchange(isDescribed, true)) metrics->describeGauge(name, help);
    std::string sample = name + "{site=\"";
    appendEscaped(&sample, label);
    metrics->add(sample += "\"}", std::to_string(*value));
  }
}

// Of two whose names read alike one is told: of the same sample twice nothing would be taken.
void addSites(Metrics* metrics, const std::vector<SiteState>& sites) {
  SitesByLabel byLabel;
  for (const SiteState& each : sites) byLabel.emplace(readable(each.name), &each);
  addOfSites(metrics, byLabel, "zordchd_site_reachable",
             "1 while another site is heard, 0 while it is silent",
             [](const SiteState& site) { return std::optional(site.isReachable ? 1 : 0); });
  addOfSites(metrics, byLabel, "zordchd_site_changes_behind",
             "rows and other changes that another site has kept and not published yet",
             [](const SiteState& site) { return site.behind; });
  addOfSites(metrics, byLabel, "zordchd_site_changes_uncollected",
             "rows and other changes that another site has kept and this hub has not yet",
             [](const SiteState& site) { return site.uncollected; });
}

}  // namespace

MetricsForm metricsFormFor(std::string_view accept) {
  if (accept.empty()) return MetricsForm::openMetrics;
  const double text = std::max(qualityOf("text/plain", accept), qualityOf("text/html", accept));
  const bool isBrowser = accept.find("text/html") != std::string_view::npos;
  const double openMetrics = qualityOf("application/openmetrics-text", accept);
  return text > openMetrics || (isBrowser && text == openMetrics) ? MetricsForm::text
                                                                  : MetricsForm::openMetrics;
}

std::string metricsType(MetricsForm form) {
  return form == MetricsForm::openMetrics
             ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
             : "text/plain; version=0.0.4; charset=utf-8";
}

std::string metricsText(MetricsForm form, const Counters& counters, const Figures& figures,
                        const Snapshot& snapshot, const std::vector<SiteState>& sites) {
  Metrics metrics(form);
  addTable(&metrics, counters);
  addRequests(&metrics, figures.requests);
  addValues(&metrics, snapshot);
  addTimes(&metrics, snapshot);
  addSites(&metrics, sites);
  return metrics.finish();
}

}  // namespace dch
