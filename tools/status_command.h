// status_command.h: `zordc status`: changes of provider status to standard output.
#ifndef TOOLS_STATUS_COMMAND_H
#define TOOLS_STATUS_COMMAND_H

#include <cstdint>
#include <optional>
#include <string>

namespace tools {

struct StatusOptions {
  std::string format = "table";  // or csv, jsonl
  std::optional<std::uint64_t> count;
};

// Returns the exit status: 0 after `count` changes, or when nobody reads the output any more. A
// signal ends the process with 0: the wait for a change cannot be cancelled. Throws a Failure.
int followStatus(const StatusOptions& options);

}  // namespace tools

#endif  // TOOLS_STATUS_COMMAND_H
