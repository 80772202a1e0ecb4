// send_command.h: `zordp send`: rows from a file or a pipe to the DCH.
#ifndef TOOLS_SEND_COMMAND_H
#define TOOLS_SEND_COMMAND_H

#include <string>

namespace tools {

struct SendOptions {
  std::string registrationPath;
  std::string group;
  std::string source;
  std::string inputPath = "-";
  std::string format = "csv";  // or jsonl
  bool keep = false;           // the application stays registered
};

// Returns the exit status: 0, or 128 and the signal's number when a signal ended the input. Throws
// a Failure.
int send(const SendOptions& options);

}  // namespace tools

#endif  // TOOLS_SEND_COMMAND_H
