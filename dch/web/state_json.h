// state_json.h: the table of counters and the other sites, in JSON.
#ifndef DCH_WEB_STATE_JSON_H
#define DCH_WEB_STATE_JSON_H

#include <string>
#include <vector>

#include "dch/core/counters.h"
#include "dch/core/message.h"
#include "dch/core/site_state.h"
#include "dch/web/snapshot.h"

namespace dch {

// What stays the same while the server runs.
struct ServerFacts {
  std::string version;
  Time started = 0;
  std::string state;  // the file of the state, or "memory"
};

// Of the sites the first mostSitesTold by urgency.
std::string stateJson(const ServerFacts& facts, const Counters& counters, const Figures& figures,
                      const std::vector<SiteState>& sites);

}  // namespace dch

#endif  // DCH_WEB_STATE_JSON_H
