// programs.h: the programs that actions run.
#ifndef DCH_CORE_PROGRAMS_H
#define DCH_CORE_PROGRAMS_H

#include <string>
#include <vector>

#include "dch/core/address_ranges.h"
#include "dch/core/text_map.h"
#include "zora/zora.h"

namespace dch {

// A program, as an absolute path, and its arguments.
using ActionCommand = std::vector<std::string>;

// Commands by the names of their actions.
using ActionList = TextMap<ActionCommand>;

// What the operator lets consumers start, and which of them.
struct ActionRules {
  ActionList list = {};
  AddressRanges allowed = AddressRanges::everyone();
};

class Programs {
 public:
  virtual ~Programs() = default;

  // Starts the program of an action, without a shell. Its end is told to Core::programEnded with
  // `id`, of which no other program runs. Returns nothing, or why it could not be started. Throws
  // std::bad_alloc; it has not been started then.
  virtual std::string start(ZORA_Long id, const ActionCommand& command) = 0;
};

}  // namespace dch

#endif  // DCH_CORE_PROGRAMS_H
