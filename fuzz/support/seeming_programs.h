// seeming_programs.h: programs of actions that only seem to run.
#ifndef FUZZ_SUPPORT_SEEMING_PROGRAMS_H
#define FUZZ_SUPPORT_SEEMING_PROGRAMS_H

#include <optional>
#include <set>
#include <string>

#include "dch/core/programs.h"

namespace fuzz {

// This one cannot be started.
inline constexpr char brokenProgram[] = "/no/such/program";

class SeemingPrograms : public dch::Programs {
 public:
  std::string start(ZORA_Long id, const dch::ActionCommand& command) override;

  struct Ended {
    ZORA_Long id;
    ZORA_Long result;
  };

  // A program that has ended meanwhile. It is one at a seventh of the times that this is asked, so
  // that requests for its result come before and after. Those of odd IDs run for ever.
  std::optional<Ended> takeEnded();

 private:
  std::set<ZORA_Long> _running;
  int _timesAsked = 0;
};

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_SEEMING_PROGRAMS_H
