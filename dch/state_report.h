// state_report.h: what the server tells the operator who asks.
#ifndef DCH_STATE_REPORT_H
#define DCH_STATE_REPORT_H

#include <string>

#include "dch/deferrals.h"
#include "dch/registry.h"

namespace dch {

// Lines: the applications with their numbers of sources on line, then the deferrals that are kept.
std::string stateReport(const Registry& registry, const Deferrals& deferrals);

}  // namespace dch

#endif  // DCH_STATE_REPORT_H
