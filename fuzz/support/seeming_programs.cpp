#include "fuzz/support/seeming_programs.h"

#include <algorithm>

#include "fuzz/support/require.h"

namespace fuzz {

std::string SeemingPrograms::start(ZORA_Long id, const dch::ActionCommand& command) {
  if (command.front() == brokenProgram) return "No such file or directory";
  require(_running.insert(id).second, "one program of an ID at a time");
  return {};
}

std::optional<SeemingPrograms::Ended> SeemingPrograms::takeEnded() {
  constexpr int timesToAsk = 7;
  if (++_timesAsked % timesToAsk != 0) return std::nullopt;
  const auto ended =
      std::find_if(_running.begin(), _running.end(), [](ZORA_Long id) { return id % 2 == 0; });
  if (ended == _running.end()) return std::nullopt;
  const ZORA_Long id = *ended;
  _running.erase(ended);
  constexpr int exitStatuses = 256;
  return Ended{id, _timesAsked % exitStatuses};
}

}  // namespace fuzz
