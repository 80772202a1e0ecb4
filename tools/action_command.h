// action_command.h: `zordc act` and `zordc defer`: what a consumer asks the DCH to do.
#ifndef TOOLS_ACTION_COMMAND_H
#define TOOLS_ACTION_COMMAND_H

#include <optional>
#include <string>

#include "zora/zora.h"

namespace tools {

struct ActionOptions {
  std::string name;
  std::string node;
  std::string subnode;
  std::string owner;
  int type = 0;
  std::optional<std::string> parms;
  std::optional<ZORA_Long> id;  // one that is not in use is made up otherwise
  bool waits = false;
};

// Asks for the action and prints its ID; with `waits`, waits for its result and prints that.
// Returns the exit status: 0, with `waits` only for the result 0, 1 for another one, EX_TEMPFAIL
// when none came. Throws a Failure: EX_USAGE when the request is too long, EX_UNAVAILABLE when it
// cannot be sent or nobody answers.
int act(const ActionOptions& options);

struct DeferralOptions {
  ZORA_Long actionId = 0;
  std::string applKey;
  std::string table;
  std::string source;
  std::optional<ZORA_Long> time;  // now otherwise
  unsigned object = 0;
};

// Asks the DCH to defer a report request. Returns 0. Throws a Failure.
int defer(const DeferralOptions& options);

}  // namespace tools

#endif  // TOOLS_ACTION_COMMAND_H
