// run_command.h: `zordp run`: rows from commands to the DCH, for as long as nobody ends it.
#ifndef TOOLS_RUN_RUN_COMMAND_H
#define TOOLS_RUN_RUN_COMMAND_H

#include <string>

namespace tools {

struct RunOptions {
  std::string path;
  bool keep = false;  // the application stays registered
};

// Returns the exit status, 128 and the number of the signal that ended it. Throws a Failure.
int run(const RunOptions& options);

}  // namespace tools

#endif  // TOOLS_RUN_RUN_COMMAND_H
