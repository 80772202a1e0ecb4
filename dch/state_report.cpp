#include "dch/state_report.h"

#include "dch/event_log.h"

namespace dch {

std::string stateReport(const Registry& registry, const Deferrals& deferrals) {
  const std::vector<RegisteredApplication> applications = registry.applications();
  std::string report = "zordchd: " + std::to_string(applications.size()) + " application(s)\n";
  for (const RegisteredApplication& application : applications)
    report += "  " + printable(application.registration->applName) + ": " +
              std::to_string(application.sourcesOnline) + " source(s) on line\n";
  report += "zordchd: " + std::to_string(deferrals.kept().size()) + " deferral(s)\n";
  for (const Deferral& deferral : deferrals.kept()) report += "  " + deferral.text() + '\n';
  return report;
}

}  // namespace dch
