// watch_command.h: `zordc watch`: rows from the DCH to standard output.
#ifndef TOOLS_WATCH_COMMAND_H
#define TOOLS_WATCH_COMMAND_H

#include <cstdint>
#include <optional>
#include <string>

namespace tools {

struct WatchOptions {
  std::string appl;
  std::string group;
  std::string format = "table";          // or csv, jsonl
  std::optional<std::uint64_t> count;    // rows to wait for
  std::optional<double> timeoutSeconds;  // without a row
};

// Returns the exit status: 0 after the rows, a signal, or when nobody reads the output any more,
// EX_TEMPFAIL when the time ran out. Throws a Failure.
int watch(const WatchOptions& options);

}  // namespace tools

#endif  // TOOLS_WATCH_COMMAND_H
