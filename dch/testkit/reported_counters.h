// reported_counters.h: counters of a real server, from the reports that it writes.
#ifndef DCH_TESTKIT_REPORTED_COUNTERS_H
#define DCH_TESTKIT_REPORTED_COUNTERS_H

#include <signal.h>

#include <optional>
#include <string>

#include "dch/testkit/link_test.h"
#include "dch/testkit/server_process.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {

// The newest number that a report has for it.
inline std::optional<long> reported(const ServerProcess& server, const std::string& name) {
  std::string reports = server.standardError();
  reports.resize(reports.rfind('\n') + 1);  // the rest of a line may still be on its way
  const std::string line = "\n  " + name + " ";
  const std::size_t at = reports.rfind(line);
  if (at == std::string::npos) return std::nullopt;
  return std::stol(reports.substr(at + line.size()));
}
// Whether it is that much at least, when the server is asked for a report often enough.
inline bool comesTo(const ServerProcess& server, const std::string& name, long number) {
  const auto isSoFar = [&] {
    kill(server.processId(), SIGUSR1);
    return reported(server, name) >= number;
  };
  return waitUntil(isSoFar, linkPatience);
}

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_REPORTED_COUNTERS_H
