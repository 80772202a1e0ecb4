#include "dch/core/site_report.h"

#include <algorithm>
#include <tuple>

#include "dch/core/log.h"

namespace dch {

namespace {

std::string lineOf(const SiteState& site, std::chrono::steady_clock::time_point now) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now - site.since).count();
  std::string line = "  " + printable(site.name) + ": " + stateWord(site) + " for " +
                     std::to_string(std::max<std::int64_t>(seconds, 0)) + " s";
  if (site.behind) line += ", " + std::to_string(*site.behind) + " change(s) behind";
  if (site.uncollected) line += ", " + std::to_string(*site.uncollected) + " not collected";
  return line + ", version " + printable(site.version) + '\n';
}

}  // namespace

const char* stateWord(const SiteState& site) {
  if (!site.isReachable) return "silent";
  return site.isStopping ? "stopping" : "here";
}

std::vector<const SiteState*> sitesByUrgency(const std::vector<SiteState>& sites,
                                             std::size_t most) {
  std::vector<const SiteState*> order;
  order.reserve(sites.size());
  for (const SiteState& each : sites) order.push_back(&each);
  const auto rankOf = [](const SiteState* site) {
    return std::tuple(site->isReachable, -site->behind.value_or(0), std::string_view(site->name));
  };
  const auto end = order.begin() + static_cast<std::ptrdiff_t>(std::min(most, order.size()));
  std::partial_sort(order.begin(), end, order.end(), [&](const auto* one, const auto* other) {
    return rankOf(one) < rankOf(other);
  });
  order.erase(end, order.end());
  return order;
}

std::string siteReport(const std::vector<SiteState>& sites,
                       std::chrono::steady_clock::time_point now) {
  std::string report = "zordchd: " + std::to_string(sites.size()) + " other site(s)\n";
  const auto told = sitesByUrgency(sites, mostSitesTold);
  for (const SiteState* each : told) report += lineOf(*each, now);
  if (told.size() < sites.size())
    report += "  and " + std::to_string(sites.size() - told.size()) + " more\n";
  return report;
}

}  // namespace dch
