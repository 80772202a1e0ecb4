// state_json.h: the table of counters, in JSON.
#ifndef DCH_WEB_STATE_JSON_H
#define DCH_WEB_STATE_JSON_H

#include <string>

#include "dch/core/counters.h"
#include "dch/core/message.h"
#include "dch/web/snapshot.h"

namespace dch {

// What stays the same while the server runs.
struct ServerFacts {
  std::string version;
  Time started = 0;
  std::string state;  // the file of the state, or "memory"
};

std::string stateJson(const ServerFacts& facts, const Counters& counters, const Figures& figures);

}  // namespace dch

#endif  // DCH_WEB_STATE_JSON_H
