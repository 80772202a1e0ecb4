// site_report.h: what the operator who asks is told of the other sites.
#ifndef DCH_CORE_SITE_REPORT_H
#define DCH_CORE_SITE_REPORT_H

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "dch/core/site_state.h"

namespace dch {

// Of more sites than people read of, those that matter most are told.
inline constexpr std::size_t mostSitesTold = 200;

// "silent", "stopping" or "here".
const char* stateWord(const SiteState& site);

// So many at most: those that are silent first, then those that are most behind.
std::vector<const SiteState*> sitesByUrgency(const std::vector<SiteState>& sites, std::size_t most);

// A line for each, mostSitesTold at most.
std::string siteReport(const std::vector<SiteState>& sites,
                       std::chrono::steady_clock::time_point now);

}  // namespace dch

#endif  // DCH_CORE_SITE_REPORT_H
