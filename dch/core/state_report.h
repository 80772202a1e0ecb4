// state_report.h: what the server tells the operator who asks.
#ifndef DCH_CORE_STATE_REPORT_H
#define DCH_CORE_STATE_REPORT_H

#include <string>

#include "dch/core/counters.h"
#include "dch/core/deferrals.h"
#include "dch/core/registry.h"
#include "dch/core/request_counts.h"

namespace dch {

// Lines: the applications with their numbers of sources on line, the deferrals that are kept, how
// requests were answered, the counters, and the gauges.
std::string stateReport(const Registry& registry, const Deferrals& deferrals,
                        const RequestCounts& requests, const Counters& counters);

// "2 applications, 7 sources on line, 1234 rows kept, 0 lost": what was lost are datagrams that the
// system threw away, changes that were not kept, and rows and status events that were not pushed.
std::string statusLine(const Counters& counters);

}  // namespace dch

#endif  // DCH_CORE_STATE_REPORT_H
