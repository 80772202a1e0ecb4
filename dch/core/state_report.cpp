#include "dch/core/state_report.h"

#include "dch/core/log.h"

namespace dch {

namespace {

// Longer than what honest consumers defer: others are not to fill the log.
constexpr std::size_t longestLine = 400;

std::string shortened(std::string text) {
  if (text.size() <= longestLine) return text;
  return text.substr(0, longestLine - 3) + "...";
}

// "3 done, 1 malformed message".
std::string answersOf(const RequestCounts::ByStatus& counts) {
  std::string text;
  for (std::size_t column = 0; column < counts.size(); ++column) {
    if (counts[column] == 0) continue;
    text += (text.empty() ? "" : ", ") + std::to_string(counts[column]) + ' ' +
            DCH_statusTable[column].text;
  }
  return text;
}

std::string figuresOf(const Counters& counters, bool gauges) {
  std::string text;
  for (const CounterDescription& each : counterDescriptions)
    if (isGauge(each.counter) == gauges)
      text += std::string("  ") + each.name + ' ' + std::to_string(counters[each.counter]) + '\n';
  return text;
}

std::string counted(std::uint64_t number, const char* singular, const char* plural) {
  return std::to_string(number) + ' ' + (number == 1 ? singular : plural);
}

}  // namespace

std::string stateReport(const Registry& registry, const Deferrals& deferrals,
                        const RequestCounts& requests, const Counters& counters) {
  const std::vector<const Application*> applications = registry.applications();
  std::string report = "zordchd: " + std::to_string(applications.size()) + " application(s)\n";
  for (const Application* application : applications)
    report += "  " + printable(application->name) + ": " +
              std::to_string(application->sourcesOnline) + " source(s) on line\n";
  report += "zordchd: " + std::to_string(deferrals.kept().size()) + " deferral(s)\n";
  for (const Deferral& deferral : deferrals.kept())
    report += "  " + shortened(deferral.text()) + '\n';
  report += "zordchd: requests\n";
  for (const RequestType& type : requestTypes()) {
    const std::string answers = answersOf(requests.of(type));
    if (!answers.empty()) report += std::string("  ") + type.name + ": " + answers + '\n';
  }
  report += "zordchd: counters\n" + figuresOf(counters, false);
  report += "zordchd: gauges\n" + figuresOf(counters, true);
  return report;
}

std::string statusLine(const Counters& counters) {
  const std::uint64_t lost = counters[Counter::datagramsThrownAway] +
                             counters[Counter::changesNotKept] + counters[Counter::pushesLost];
  return counted(counters[Counter::applications], "application", "applications") + ", " +
         counted(counters[Counter::sourcesOnline], "source", "sources") + " on line, " +
         counted(counters[Counter::rowsKept], "row", "rows") + " kept, " + std::to_string(lost) +
         " lost";
}

}  // namespace dch
